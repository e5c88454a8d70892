#include "capilite/BitStringNames.h"

#include <cstdlib>
#include <string_view>

#include "capilite/Strings.h"

namespace {

unsigned int wordValue(const unsigned int* values, const char* const* names, unsigned long count,
                       const std::string& word) {
    for (unsigned long i = 0; i < count; ++i) {
        if (word == names[i]) return values[i];
    }
    return static_cast<unsigned int>(std::strtoul(word.c_str(), nullptr, 0));
}

}  // namespace

std::string SmallBitStringToString(const unsigned int* values, const char* const* names,
                                   unsigned long count, unsigned int bits) {
    return SmallBitStringToBasicString<char>(values, names, count, bits);
}

unsigned int SmallBitStringFromString(const unsigned int* values, const char* const* names,
                                      unsigned long count, const char* text,
                                      const char* emptyName) {
    if (text == nullptr) return 0;
    std::string rest = strip_white_space(text);
    if (rest.empty() || (emptyName != nullptr && rest == emptyName)) return 0;
    unsigned int bits = 0;
    for (std::size_t start = 0; start <= rest.size();) {
        std::size_t end = rest.find('|', start);
        if (end == rest.npos) end = rest.size();
        std::string word = strip_white_space(rest.substr(start, end - start));
        bits |= wordValue(values, names, count, word);
        start = end + 1;
    }
    return bits;
}
