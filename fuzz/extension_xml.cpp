#include <string>

#include "fuzz/Fuzz.h"
#include "pkixcmp/Extensions.h"

// XML text of extensions. The first octet chooses the extension, the rest is the text; text that is
// accepted gives bytes, and the text written for these bytes gives them again.

namespace {

const char* const identifiers[] = {"2.5.29.15",
                                   "2.5.29.21",
                                   "2.5.29.23",
                                   "2.5.29.24",
                                   "2.5.29.20",
                                   "1.3.6.1.5.5.7.48.1.5",
                                   "2.5.29.9",
                                   "2.5.29.14",
                                   "2.5.29.16",
                                   "2.5.29.17",
                                   "2.5.29.18",
                                   "2.5.29.19",
                                   "2.5.29.27",
                                   "2.5.29.28",
                                   "2.5.29.29",
                                   "2.5.29.30",
                                   "2.5.29.31",
                                   "2.5.29.32",
                                   "2.5.29.33",
                                   "2.5.29.35",
                                   "2.5.29.36",
                                   "2.5.29.37",
                                   "2.5.29.54",
                                   "1.3.6.1.5.5.7.1.1",
                                   "1.3.6.1.5.5.7.1.11",
                                   "1.3.6.1.4.1.311.21.1",
                                   "1.2.3.4"};

void readTags(std::string text) {
    std::size_t left = text.size() + 1;
    while (accepted([&] {
        get_not_xml(text);
        std::string tag = get_sub_xml(text);
        is_lend(tag);
    })) {
        require(text.size() < left);
        left = text.size();
    }
    accepted([&] { get_sub_xml_lend(text); });
    accepted([&] { get_sub_xml_rend(text); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const char* oid = identifiers[data[0] % std::size(identifiers)];
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    readTags(text);
    accepted([&] { CACMPT_ExtCDP cdp(text); });
    CACMPT_ExtValue value;
    if (!accepted([&] { value = CACMPT_ExtValue(oid, text); }) || value.value.empty()) return 0;
    const CACMPT_ExtValue again(oid, value.xml);
    require(again.xml == value.xml);
    // Only the empty text declares bits that are not set.
    require(again.value == value.value || value.xml == "<KeyUsage></KeyUsage>");
    return 0;
}
