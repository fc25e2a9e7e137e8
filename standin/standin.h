// A stand-in for the host framework: the services of host/vyn.h, for C++ programs that load the
// module without the real host around it. A program links all of standin/ and exports its symbols
// (-rdynamic; in CMake the property ENABLE_EXPORTS), so that the module finds its services there.
// What is declared here is what the program itself calls.
#pragma once

#include "host/capabilities.h"
#include "host/vyn.h"

// --- Modules --------------------------------------------------------------------------------

// A loaded format module and its entry points.
struct StandinModule {
    void *library;
    decltype(&imageInit) init;
    decltype(&imageCapability) capability;
    decltype(&imageIsFile) is_file;
    decltype(&imageReadOpen) read_open;
    decltype(&imageWriteOpen) write_open;
};

// Loads the shared object at `path`, finds its entry points and calls imageInit. Returns null, or
// what went wrong, valid until the next call.
const char *standin_load(const char *path, StandinModule *module);

// The address of a data symbol of the module, or null.
void *standin_symbol(const StandinModule *module, const char *name);

// Returns a text of the descriptor, such as that of "imageName", or "unknown" when the module has
// none. The text belongs to the module.
const char *standin_text(const StandinModule *module, const char *name);

// Unloads the module. No image may be open.
void standin_unload(StandinModule *module);

// --- Handles --------------------------------------------------------------------------------

// Makes a handle for reading `file_name`, which is copied and opened exactly as it is; set
// name_is_exact to 0 to have it searched for. After an open that gave 1 or -1 the close procedure
// destroys the handle; after an open that gave 0, vyn__free_obj does.
ImageHandle *standin_new_reader(const char *file_name);

// The same for writing, with a description: `width` by `height` pixels, `channels` 3 or 0 of
// colour, `mattes` and `depths` 0 or 1.
ImageHandle *standin_new_writer(const char *file_name, int32_t width, int32_t height,
                                int32_t channels, int32_t mattes, int32_t depths);

// Adds a capability request, after those already made.
void standin_request(ImageHandle *handle, uint16_t code, int32_t value);

// --- Messages -------------------------------------------------------------------------------

struct StandinMessage {
    int set;      // of the catalogue; 0 for a system error
    int number;   // of the message, or the system error's
    int severity; // 2 warning, 3 error
    const char *text;
};

typedef void (*StandinSink)(const StandinMessage &message, void *context);

// Sends messages to `sink`, or, when it is null, to standard error, one line each.
void standin_set_sink(StandinSink sink, void *context);

// --- Faults ---------------------------------------------------------------------------------

// The services. Those up to STANDIN_FMT_INFO can fail; calls of the others are only counted.
enum StandinService {
    STANDIN_MALLOC,
    STANDIN_SAVE,
    STANDIN_DEFINE,
    STANDIN_EXTENSION,
    STANDIN_CHAN_ALLOC,
    STANDIN_BUILD_HANDLE,
    STANDIN_FMT_INFO,
    STANDIN_REPORT_CAT,
    STANDIN_REPORT_ERRNO,
    STANDIN_COMPARE,
    STANDIN_LENGTH,
    STANDIN_INIT_IFD,
    STANDIN_CHAN_FREE,
    STANDIN_FREE_OBJ,
    STANDIN_FMT_INIT,
    STANDIN_GAMMA,
    STANDIN_COLOUR, // all four chromaticities
    STANDIN_SERVICES
};

// Forgets all counts and faults; the services leave errno unchanged from now on.
void standin_reset_faults();

// Makes the n-th call of a service from now on (1 is the next) fail, and with `onwards` all after
// it.
void standin_fail(StandinService service, long nth, bool onwards);

// Makes every service leave `value` in errno, also one that succeeds; 0: each keeps errno.
void standin_spoil_errno(int value);

// Calls of the service since the last reset.
long standin_calls(StandinService service);
