#include "RTTI/Object.h"

#include "RTTI/Declare.h"

RTTI_BEGIN(RTTI::Object, 1)
RTTI_END()
