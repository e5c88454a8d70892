#pragma once

// The traits families that move value classes to and from the records. Each family stands beside
// its value class; capilite/RecordCoding.h says what a family offers.

#include "capilite/ASN1Types.h"
#include "capilite/RecordCoding.h"
