#pragma once

// The records of messages and all that they hold.

#include "pkixcmp/FailureInfo.h"
#include "pkixcmp/FreeText.h"
#include "pkixcmp/GeneralInfo.h"
#include "pkixcmp/MessageDecoding.h"
#include "pkixcmp/Records.h"
