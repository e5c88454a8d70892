#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <typeinfo>

#include "capilite/CAException.h"
#include "capilite/Handles.h"

/// The bare message of a failure, without the frame of `format_string`.
inline std::string bareMessage(const CAException& e) {
    std::string_view text = e.what();
    text.remove_prefix(std::string_view("Exception :'").size());
    return std::string(text.substr(0, text.rfind("' at file:'")));
}

/// What an action throws, in one line: the class and the message, for a CryptException the code
/// instead. "none" when it returns.
template <class Action>
std::string failureOf(Action action) {
    try {
        action();
        return "none";
    } catch (const CryptException& e) {
        char code[32];
        std::snprintf(code, sizeof code, "CryptException %08x", e.code);
        return code;
    } catch (const CAException& e) {
        const char* name = typeid(e) == typeid(Asn1DecodeException)   ? "Asn1DecodeException "
                           : typeid(e) == typeid(Asn1EncodeException) ? "Asn1EncodeException "
                           : typeid(e) == typeid(Asn1Exception)       ? "Asn1Exception "
                           : typeid(e) == typeid(date_exception)      ? "date_exception "
                           : typeid(e) == typeid(CAException)         ? "CAException "
                                                                      : "other ";
        return name + bareMessage(e);
    } catch (const CAtlException& e) {
        char code[32];
        std::snprintf(code, sizeof code, "CAtlException %08x", static_cast<unsigned>(e.m_hr));
        return code;
    } catch (const std::exception& e) {
        return e.what();
    }
}

/// The text that an action returns, or what it throws as `failureOf` tells it.
template <class Action>
std::string resultOf(Action action) {
    std::string result;
    const std::string failure = failureOf([&] { result = action(); });
    return failure == "none" ? result : failure;
}

/// Expects a statement to throw what `failureOf` tells by the text.
#define EXPECT_FAILURE(statement, text) EXPECT_EQ(failureOf([&] { statement; }), text)
/// Expects a statement to throw a failure of the ASN.1 runtime, in whatever words.
#define EXPECT_ASN1_FAILURE(statement) \
    EXPECT_EQ(failureOf([&] { statement; }).substr(0, 14), "Asn1Exception ")
