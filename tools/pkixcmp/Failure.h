#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace tool {

// What the program ends with.
inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;  // failed, or refused by the peer
inline constexpr int exitUsage = 2;
inline constexpr int exitWaiting = 3;  // accepted, and not decided yet

/// A failure in the words of the program: UTF-8, one line, "what failed; what to do". `detail` is
/// the library's full text, shown with -v.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, std::string fullText = {}, int exitCode = exitFailed)
        : std::runtime_error(text), detail(std::move(fullText)), exit(exitCode) {}

    std::string detail;
    int exit;
};

/// The program was called wrongly.
class UsageError : public Failure {
public:
    explicit UsageError(const std::string& text) : Failure(text, {}, exitUsage) {}
};

/// The meaning of any failure in UTF-8, with what to do where that is known: the bare text of the
/// library's failures, without source path and line.
std::string meaningOf(const std::exception& failure);
/// The same for a code of the provider layer.
std::string meaningOfCode(unsigned int code);
/// The library's full text in UTF-8, with the type of the failure.
std::string fullTextOf(const std::exception& failure);

/// Runs a step; its failures say what the step was for: "cannot make the root: …".
template <class Step>
auto doing(const std::string& what, Step step) -> decltype(step()) {
    try {
        return step();
    } catch (const Failure&) {
        throw;
    } catch (const std::exception& failure) {
        throw Failure("cannot " + what + ": " + meaningOf(failure), fullTextOf(failure));
    }
}

/// Runs a step behind others; its failures say what stands of them.
template <class Step>
void behind(const std::string& stands, Step step) {
    try {
        step();
    } catch (const Failure& failure) {
        throw Failure(failure.what() + ("; " + stands), failure.detail, failure.exit);
    }
}

}  // namespace tool
