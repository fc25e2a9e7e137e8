// What every service does first: it learns whether it is to fail.
#pragma once

#include "standin/standin.h"

// A call of a service, from its start to its end. Counts it; at its end errno is what it was, or
// what standin_spoil_errno says.
struct ServiceCall {
    explicit ServiceCall(StandinService service);
    ~ServiceCall();
    ServiceCall(const ServiceCall &) = delete;
    ServiceCall &operator=(const ServiceCall &) = delete;

    const bool fails;
    const int kept_errno;
};
