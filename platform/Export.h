#pragma once

// What the shared library exports. Everything else is hidden.
#define PKIXCMP_API __attribute__((visibility("default")))
