// Counting the calls of the services and failing those that a test has chosen.
#include "standin/faults.h"

namespace {

struct Fault {
    long calls;
    long first; // call that fails; 0: none
    bool onwards;
};

Fault faults[STANDIN_SERVICES];

} // namespace

void standin_reset_faults()
{
    for (Fault &fault : faults) {
        fault = {};
    }
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

bool standin_must_fail(StandinService service)
{
    Fault &fault = faults[service];
    ++fault.calls;
    return fault.calls == fault.first ||
           (fault.onwards && fault.first > 0 && fault.calls > fault.first);
}
