#pragma once

#include <string>
#include <vector>

/// One encoding of a type, in the notation of DerText.
struct Golden {
    std::string type;
    std::string text;
};
const std::vector<Golden>& goldenTable();
