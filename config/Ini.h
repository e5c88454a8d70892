#pragma once

// The typed configuration tree: keys addressed by backslash paths, holding typed values.

#include "config/IniExceptions.h"
#include "config/IniKey.h"
#include "config/IniValue.h"
#include "config/MultiSz.h"
