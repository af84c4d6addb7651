// The table of RTTI::Object stands apart from its class: tables of containers need the class, and declaring needs the containers.
#include "RTTI/Declare.h"
#include "RTTI/Object.h"

RTTI_BEGIN(RTTI::Object, 1)
RTTI_END()
