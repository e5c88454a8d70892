#include "pkixcmp/KeyContainers.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "capilite/CAException.h"
#include "platform/crypt/CryptApi.h"

#undef PKIXCMP_SOURCE
#define PKIXCMP_SOURCE "pkixcmp/RI_GenerateKeyPair"

namespace {

constexpr std::string_view prefix = "\\\\.\\";

/// The bytes of a provider parameter.
std::vector<BYTE> readParameter(unsigned long long provider, DWORD parameter) {
    DWORD length = 0;
    if (!CryptGetProvParam(provider, parameter, nullptr, &length, 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    std::vector<BYTE> bytes(length);
    if (length && !CryptGetProvParam(provider, parameter, bytes.data(), &length, 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    bytes.resize(length);
    return bytes;
}

std::string readText(unsigned long long provider, DWORD parameter) {
    const std::vector<BYTE> bytes = readParameter(provider, parameter);
    const std::string text(bytes.begin(), bytes.end());
    return text.c_str();  // up to its zero
}

/// Two zero-terminated strings in a row.
std::pair<std::string, std::string> readerEntry(const std::vector<BYTE>& bytes, DWORD length) {
    const std::string_view entry(reinterpret_cast<const char*>(bytes.data()), length);
    const std::size_t middle = entry.find('\0');
    if (middle == entry.npos) return {std::string(entry), std::string()};
    const std::string_view second = entry.substr(middle + 1);
    return {std::string(entry.substr(0, middle)), std::string(second.substr(0, second.find('\0')))};
}

/// Reads the identifier of an opened container; the code of the answerable failure, or 0.
std::uint32_t readState(WndProv& wnd, unsigned long long provider, const char* name,
                        std::uint32_t& state) {
    std::uint32_t length = sizeof state;
    RetryGetProvParam operation(provider, PP_CONTAINER_STATUS, &length,
                                reinterpret_cast<std::uint8_t*>(&state), 0);
    const bool answerable = wnd.retry(name, -1, operation);
    const auto code = static_cast<std::uint32_t>(operation.error);
    if (!answerable) PKIXCMP_THROW(CryptException, code ? code : GetLastError());
    return code;
}

PinParam pinParam(PinBuffer& pin) {
    PinParam parameter;
    parameter.text = pin.c_str();
    return parameter;
}

const std::uint8_t* bytesOf(const PinParam& parameter) {
    return reinterpret_cast<const std::uint8_t*>(&parameter);
}

void supplyPin(unsigned long long provider, PinBuffer& pin) {
    const PinParam parameter = pinParam(pin);
    if (!CryptSetProvParam(provider, PP_SET_AUTH, bytesOf(parameter), 0)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
}

/// What a person's cancel leaves behind.
bool cancelled() {
    SetLastError(SCARD_W_CANCELLED_BY_USER);
    return false;
}

bool force_pin(WndProv& wnd, unsigned long long provider, const char* name, short parts, int part,
               unsigned int* pinState) {
    PinBuffer pin;
    *pinState = 0;
    if (!wnd.get_new_pin(name, pin.text, parts, part)) return cancelled();
    supplyPin(provider, pin);
    std::uint32_t state = 0;
    if (const std::uint32_t error = readState(wnd, provider, name, state)) {
        PKIXCMP_THROW(CryptException, error);
    }
    *pinState = state;
    return true;
}

}  // namespace

bool is_pin_provider(unsigned int providerType) {
    return providerType == PROV_ECDSA_P256 || providerType == PROV_RSA_3072 ||
           providerType == PROV_ECDSA_P384;
}

void split_container_name(const char* name, std::string& reader, std::string& container) {
    reader.clear();
    container = name ? name : "";
    if (!container.starts_with(prefix)) return;
    const std::string rest = container.substr(prefix.size());
    const std::size_t end = rest.find('\\');
    reader = rest.substr(0, end);
    container = end == rest.npos ? std::string() : rest.substr(end + 1);
}

std::string full_container_name(const std::string& reader, const std::string& container) {
    return std::string(prefix) + reader + '\\' + container;
}

void get_reader_list(unsigned long long provider, ReaderList& readers) {
    DWORD size = 0;
    if (!CryptGetProvParam(provider, PP_ENUMREADERS, nullptr, &size, CRYPT_FIRST)) {
        PKIXCMP_THROW(CryptException, GetLastError());
    }
    std::vector<BYTE> entry(size);
    DWORD length = size;
    for (DWORD flags = CRYPT_FIRST;
         CryptGetProvParam(provider, PP_ENUMREADERS, entry.data(), &length, flags);
         flags = CRYPT_NEXT, length = size) {
        readers.push_back(readerEntry(entry, length));
    }
}

std::string choose_reader(WndProv& wnd, unsigned long long provider) {
    ReaderList readers;
    get_reader_list(provider, readers);
    std::string reader = wnd.get_reader(readers);
    if (reader.empty()) cancelled();
    return reader;
}

std::string get_container(unsigned long long provider) { return readText(provider, PP_CONTAINER); }

std::string get_unique(unsigned long long provider) {
    return readText(provider, PP_UNIQUE_CONTAINER);
}

std::string get_provider(unsigned long long provider) { return readText(provider, PP_NAME); }

CACMPT_BLOB GetPinInfo(unsigned long long provider) {
    const std::vector<BYTE> bytes = readParameter(provider, PP_AUTH_INFO);
    CACMPT_BLOB info;
    info.assign(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return info;
}

unsigned int get_pin_load(WndProv& wnd, unsigned long long provider, const char* name, short parts,
                          int part) {
    for (short tries = 3;; --tries) {
        std::uint32_t state = 0;
        const std::uint32_t error = readState(wnd, provider, name, state);
        if (error == 0) return state;
        if (error != SCARD_W_WRONG_CHV || tries == 0) PKIXCMP_THROW(CryptException, error);
        if (wnd.use_builtin_windows()) continue;
        PinBuffer pin;
        SetLastError(error);
        if (!wnd.get_current_pin(name, tries, pin.text, parts, part)) {
            cancelled();
            return 0;
        }
        supplyPin(provider, pin);
    }
}

bool change_pin(WndProv& wnd, unsigned long long provider, const char* name, short parts,
                int part) {
    PinBuffer pin;
    if (!wnd.get_new_pin(name, pin.text, parts, part)) return cancelled();
    const PinParam parameter = pinParam(pin);
    RetrySetProvParam operation(provider, PP_CHANGE_AUTH, bytesOf(parameter), 0);
    const bool answerable = wnd.retry(name, -1, operation);
    const auto error = static_cast<std::uint32_t>(operation.error);
    if (!answerable || error) PKIXCMP_THROW(CryptException, error ? error : GetLastError());
    return true;
}

bool set_created_pin(WndProv& wnd, unsigned long long provider, const char* name, short parts,
                     int part, unsigned int* pinState) {
    if (wnd.force_new_pin()) return force_pin(wnd, provider, name, parts, part, pinState);
    *pinState = get_pin_load(wnd, provider, name, parts, part);
    if (*pinState == 0) return false;
    return wnd.no_pin() || change_pin(wnd, provider, name, parts, part);
}
