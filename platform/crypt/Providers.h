#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/crypt/Algorithms.h"

namespace provider {

/// One row of the provider table.
struct ProviderType {
    DWORD type;
    const char* name;
    const char* keys;  // the shape of a new key, as "EC:P-256"
    bool readers;      // its containers stand in readers and may take a PIN
};

std::span<const ProviderType> providerTypes();
/// By type and name; a type of 0 or a null name says nothing. Fails with the code for what does not
/// exist or does not match.
const ProviderType& findProvider(DWORD type, const char* name);

/// The shape of new keys: that of the setting "\config\Providers\<type>\Algorithm" when there is
/// one, else that of the table. Fails with NTE_BAD_ALGID when the setting names an unknown one.
const KeyShape& keyShapeOf(const ProviderType& type);
/// The key algorithm of the table, settings aside.
const Algorithm& keyAlgorithmOf(const KeyShape& shape);

/// A text of the settings tree; nothing when it is missing or no text.
std::optional<std::string> textSetting(const std::string& path);

}  // namespace provider
