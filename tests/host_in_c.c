// What a host in C includes: the compiler holds it against C11, and the assertions on layouts too.
#include "host/capabilities.h"
