#pragma once

#include <exception>
#include <nlohmann/json.hpp>
#include <string>

namespace tool {

/// JSON with the members in the order they were put in.
using Json = nlohmann::ordered_json;

/// Prints the result of a command: the JSON value with --json, else the text. On standard output,
/// or on standard error after `printResultsAside`.
void printResult(bool json, const Json& value, const std::string& text);
/// Standard output is for an object alone from here on: results go to standard error.
void printResultsAside();
/// Bytes to standard output, as they are.
void printBytes(const std::string& bytes);
/// One line on standard error that does not end the command.
void printWarning(const std::string& text);
/// Tells a failure: one line on standard error, the full text behind it with `verbose`, and
/// {"error": …} on standard output with `json`. Gives the exit code.
int printFailure(const std::exception& failure, bool json, bool verbose);

}  // namespace tool
