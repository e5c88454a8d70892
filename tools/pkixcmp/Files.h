#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "capilite/Blob.h"

namespace tool {

/// The content of a file, "-" being standard input. Refuses what is larger than 1 GiB.
std::string readFile(const std::string& path);
/// Writes a file whole or not at all: a temporary one beside it, renamed. "-" is standard output;
/// devices and pipes are written to as they are.
void writeFile(const std::string& path, std::string_view content);
/// Looks at the files that a command will write before it does what cannot be undone: a Failure
/// when one cannot be written. Empty paths are passed over.
void planOutputs(std::initializer_list<std::string> paths);

/// One object of a file: its DER, and the label of its armour, empty when it had none.
struct Armoured {
    std::string label;
    std::string der;
};
/// The objects of a file: every armoured one in order (text between them is passed over), or the
/// one that stands there as DER or as bare base64. `name` is the file's, for failures.
std::vector<Armoured> readObjects(const std::string& content, const std::string& name);
/// The same for a file that must hold one object.
CACMPT_BLOB readObject(const std::string& path);

/// "-----BEGIN label-----", base64, "-----END label-----".
std::string armour(std::string_view der, const std::string& label);
/// Writes DER, or armour when the name ends in ".pem" or ".crt".
void writeObject(const std::string& path, const CACMPT_BLOB& der, const std::string& label);

}  // namespace tool
