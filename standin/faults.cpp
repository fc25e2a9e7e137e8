// Counting the calls of the services and failing those that a test has chosen.
#include "standin/faults.h"

#include <errno.h>

namespace {

struct Fault {
    long calls;
    long first; // call that fails; 0: none
    bool onwards;
};

Fault faults[STANDIN_SERVICES];
int spoilt_errno = 0;

} // namespace

void standin_reset_faults()
{
    for (Fault &fault : faults) {
        fault = {};
    }
    spoilt_errno = 0;
}

void standin_fail(StandinService service, long nth, bool onwards)
{
    Fault &fault = faults[service];
    fault.first = fault.calls + nth;
    fault.onwards = onwards;
}

long standin_calls(StandinService service)
{
    return faults[service].calls;
}

void standin_spoil_errno(int value)
{
    spoilt_errno = value;
}

static bool must_fail(Fault *fault)
{
    ++fault->calls;
    return fault->calls == fault->first ||
           (fault->onwards && fault->first > 0 && fault->calls > fault->first);
}

ServiceCall::ServiceCall(StandinService service)
    : fails(must_fail(&faults[service])), kept_errno(errno)
{
}

ServiceCall::~ServiceCall()
{
    errno = spoilt_errno ? spoilt_errno : kept_errno;
}
