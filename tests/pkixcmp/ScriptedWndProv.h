#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <optional>
#include <string>

#include "capilite/CAException.h"
#include "capilite/Handles.h"
#include "pkixcmp/KeyContainers.h"
#include "platform/crypt/CryptApi.h"

/// A person with prepared answers, and a log of the questions, each ended by "; ".
class ScriptedWndProv : public WndProv {
public:
    using Answers = std::deque<std::optional<std::string>>;  // nothing: cancel

    std::string log;
    Answers media;  // behind the last answer: yes
    Answers pins;   // behind the last answer of a kind of PIN: cancel
    Answers newPins;
    std::string reader;
    int bits = 0;
    int retries = 0;
    bool builtin = false;
    bool keepPin = false;
    bool forcePin = false;

    bool insert_create(const char* name, unsigned long error, short parts, int part) override {
        char code[16];
        std::snprintf(code, sizeof code, " %lx", error);
        ask("insert", name, parts, part, code);
        return media.empty() || answer(media, nullptr);
    }
    bool retry(const char*, int tries, Retry& operation) override {
        EXPECT_EQ(tries, -1);
        ++retries;
        operation.error = operation.call() ? 0 : static_cast<std::int32_t>(GetLastError());
        const auto code = static_cast<std::uint32_t>(operation.error);
        return code == 0 || code == SCARD_W_WRONG_CHV || code == SCARD_W_CHV_BLOCKED;
    }
    bool get_current_pin(const char* name, short tries, char* pin, short parts, int part) override {
        ask("pin", name, parts, part, " " + std::to_string(tries));
        return answer(pins, pin);
    }
    bool get_new_pin(const char* name, char* pin, short parts, int part) override {
        ask("new pin", name, parts, part);
        return answer(newPins, pin);
    }
    std::string get_reader(const ReaderList& readers) override {
        log += "reader";
        for (const auto& entry : readers) log += ' ' + entry.second;
        log += "; ";
        return reader;
    }
    int get_key_size() override {
        log += "key size; ";
        return bits;
    }
    bool use_builtin_windows() override { return builtin; }
    bool no_pin() override { return keepPin; }
    bool force_new_pin() override { return forcePin; }

private:
    void ask(const std::string& what, const char* name, short parts, int part,
             const std::string& more = {}) {
        log += what + ' ' + name;
        if (parts || part) log += " " + std::to_string(part) + "/" + std::to_string(parts);
        log += more + "; ";
    }
    static bool answer(Answers& answers, char* pin) {
        if (answers.empty()) return false;
        const auto given = answers.front();
        answers.pop_front();
        if (given && pin) std::strcpy(pin, given->c_str());
        return given.has_value();
    }
};

/// The code of the `CryptException` that a call throws, 0 when it throws nothing.
template <class Call>
std::uint32_t cryptError(Call call, const char* source = "pkixcmp/RI_GenerateKeyPair") {
    try {
        call();
    } catch (const CryptException& e) {
        EXPECT_EQ(e.file, source);
        return e.code;
    }
    return 0;
}

/// Opens a container; 0 when there is none.
inline unsigned long long openContainer(const std::string& fullName) {
    HCRYPTPROV provider = 0;
    CryptAcquireContextA(&provider, fullName.c_str(), nullptr, PROV_ECDSA_P256, 0);
    return provider;
}

/// Whether a PIN unlocks a container that is opened anew.
inline bool opensWith(const std::string& fullName, const char* pin) {
    const prov_handle provider(openContainer(fullName));
    PinParam parameter;
    parameter.text = pin;
    DWORD state = 0;
    DWORD length = sizeof state;
    auto* const bytes = reinterpret_cast<BYTE*>(&state);
    return CryptSetProvParam(provider, PP_SET_AUTH, reinterpret_cast<BYTE*>(&parameter), 0) &&
           CryptGetProvParam(provider, PP_CONTAINER_STATUS, bytes, &length, 0);
}
