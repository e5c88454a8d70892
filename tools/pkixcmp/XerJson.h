#pragma once

#include <string_view>

#include "tools/pkixcmp/Output.h"

namespace tool {

/// The JSON form of XER text, {"Certificate": {…}}:
/// - a SEQUENCE or CHOICE is an object of its fields;
/// - a SEQUENCE OF or SET OF is an array, of objects with one member where the items are a CHOICE;
/// - a bit string with named bits and an enumerated value are arrays of names;
/// - a value of any type is an object with one member, named by the type;
/// - a BOOLEAN is true or false, all else a string as it stands in the XER text.
Json jsonFromXer(std::string_view xer);

}  // namespace tool
