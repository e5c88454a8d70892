#pragma once

#include <map>
#include <string>
#include <vector>

#include "DerText.h"

/// The schemas of all modules.
const std::map<std::string, const asn1::Type*>& typesByName();
inline const asn1::Type& typeNamed(const std::string& name) { return *typesByName().at(name); }

/// Encodings of a type, in the notation of DerText.
struct Golden {
    std::string type;
    std::vector<std::string> texts;
};
const std::vector<Golden>& goldenTable();

enum class Xer {
    stable,  // gives the same text again when it was read
    exact,   // gives the bytes back too
};
/// The bytes must come back from the decoded value, from a copy that outlives it, and as far as
/// said from its XER text.
void expectRoundTrip(const asn1::Type& type, const std::string& bytes, Xer kind);
