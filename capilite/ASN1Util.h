#pragma once

// Failures, byte buffers, armoured text, dates, text conversion and small ASN.1 helpers.

#include "capilite/AsnTime.h"
#include "capilite/Base64.h"
#include "capilite/BigInt.h"
#include "capilite/BitStringNames.h"
#include "capilite/Blob.h"
#include "capilite/CAException.h"
#include "capilite/CRLReason.h"
#include "capilite/Date.h"
#include "capilite/DecodeBuffer.h"
#include "capilite/FileOpen.h"
#include "capilite/Handles.h"
#include "capilite/Oid.h"
#include "capilite/RecordCoding.h"
#include "capilite/RecordHelpers.h"
#include "capilite/Strings.h"
#include "platform/support/Text.h"
