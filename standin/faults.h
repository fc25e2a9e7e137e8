// How a service learns that it is to fail.
#pragma once

#include "standin/standin.h"

// Counts a call of the service. True when this call must fail.
bool standin_must_fail(StandinService service);
