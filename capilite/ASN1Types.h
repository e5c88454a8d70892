#pragma once

// Value classes over ASN.1 records, and searching stores for them.

#include "capilite/ASN1Util.h"
#include "capilite/AttributeRegister.h"
#include "capilite/AttributeTypeAndValue.h"
#include "capilite/CertName.h"
#include "capilite/Choice.h"
#include "capilite/Name.h"
#include "capilite/ParsedRdn.h"
#include "capilite/StoreFind.h"
#include "capilite/TimeChoice.h"
