// For products that include "kvhost.h" from this folder; <kvfile/kvhost.h> is the header itself.
#pragma once

#include <kvfile/kvhost.h>
