// The one function of the module that indents coordinate-system texts.
#pragma once

#include "platform/Export.h"

// The text indented for people, to be freed with free(); null when it is not understood.
extern "C" QM_API char* qmPrettyWKT(const char* wkt);
