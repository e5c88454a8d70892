#pragma once

// The whole ASN.1 layer for a caller: runtime, published modules, identifiers.

#include "platform/asn1/Buffers.h"
#include "platform/asn1/CMS.h"
#include "platform/asn1/ObjectIds.h"
#include "platform/asn1/PKCS10.h"
#include "platform/asn1/PKIX1Explicit.h"
#include "platform/asn1/PKIX1Implicit.h"
#include "platform/asn1/PKIXCMP.h"
#include "platform/asn1/PKIXCRMF.h"
#include "platform/asn1/Runtime.h"
#include "platform/asn1/Time.h"
