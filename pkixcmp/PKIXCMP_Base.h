#pragma once

// The whole of the protocol for a caller: records, messages, client, CA, transport.

#include "pkixcmp/Client.h"
#include "pkixcmp/Extensions.h"
#include "pkixcmp/KeyContainers.h"
#include "pkixcmp/MessageCoding.h"
#include "pkixcmp/Messages.h"
#include "pkixcmp/Party.h"
#include "pkixcmp/Protection.h"
#include "pkixcmp/SendPKIRequest.h"
#include "pkixcmp/Server.h"
#include "retrieval/CURLGlobalInit.h"
#include "retrieval/UrlRetriever.h"
