// The host's services. Each allocation holds rubbish until it is filled, so that nobody comes to
// rely on zeros.
#include "standin/faults.h"
#include "standin/standin.h"

#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <forward_list>
#include <iterator>
#include <string>

extern "C" {
int vyn__err = 0;
nl_catd vyn__msg_cat = nullptr;
const char VYN_LITERAL_HARD_FORMAT_TYPE_RGB[] = "RGB";
}

namespace {

StandinSink message_sink = nullptr;
void *message_context = nullptr;

void issue(const StandinMessage &message)
{
    if (message_sink) {
        message_sink(message, message_context);
    } else {
        fprintf(stderr, "%s: %s\n", message.severity == 2 ? "warning" : "error", message.text);
    }
}

void *allocate(size_t size)
{
    void *block = malloc(size);
    if (block) {
        memset(block, 0xA5, size);
    }
    return block;
}

void free_rows(void **rows)
{
    for (void **row = rows; rows && *row; ++row) {
        free(*row);
    }
    free(rows);
}

} // namespace

void standin_set_sink(StandinSink sink, void *context)
{
    message_sink = sink;
    message_context = context;
}

// --- Messages and memory --------------------------------------------------------------------

void ERR_report_cat(nl_catd catalogue, int set, int number, int severity, const char *format, ...)
{
    const ServiceCall call(STANDIN_REPORT_CAT);
    const char *words = catalogue ? catgets(catalogue, set, number, format) : format;
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int size = vasprintf(&text, words, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    issue({set, number, severity, size < 0 ? words : text});
    if (size >= 0) {
        free(text);
    }
}

void ERR_report_errno(int errno_value, const char *name)
{
    const ServiceCall call(STANDIN_REPORT_ERRNO);
    const std::string text = std::string(name) + ": " + strerror(errno_value);
    issue({0, errno_value, 3, text.c_str()});
}

void *ERR_malloc(size_t size)
{
    const ServiceCall call(STANDIN_MALLOC);
    return call.fails ? nullptr : allocate(size);
}

// --- Strings --------------------------------------------------------------------------------

char *STR_save(const char *s)
{
    const ServiceCall call(STANDIN_SAVE);
    return call.fails ? nullptr : strdup(s);
}

const char *STR_define(const char *s)
{
    static std::forward_list<std::string> defined;
    const ServiceCall call(STANDIN_DEFINE);
    return call.fails ? nullptr : defined.emplace_front(s).c_str();
}

int STR_compare(const char *a, const char *b)
{
    const ServiceCall call(STANDIN_COMPARE);
    return strcmp(a, b);
}

const char *STR_extension(const char *name)
{
    const ServiceCall call(STANDIN_EXTENSION);
    if (call.fails) {
        return nullptr;
    }
    const char *slash = strrchr(name, '/');
    return strrchr(slash ? slash : name, '.');
}

int STR_length(const char *s)
{
    const ServiceCall call(STANDIN_LENGTH);
    return static_cast<int>(strlen(s));
}

// --- Image objects --------------------------------------------------------------------------

void vyn__init_ifd(ImageHandle *handle)
{
    const ServiceCall call(STANDIN_INIT_IFD);
    ImageInfo *info = handle->info;
    *info = {};
    info->channel_type = 1;
    info->channel_width = 8;
    info->matte_type = 1;
    info->matte_width = 8;
}

// Each row is a block of its own, so that a memory checker sees a step past its end. The array ends
// with a null.
void **vyn__chan_alloc(ImageInfo *info, int32_t width, const char *)
{
    const ServiceCall call(STANDIN_CHAN_ALLOC);
    if (call.fails) {
        return nullptr;
    }
    const int32_t bytes = info->channel_count + info->matte_count;
    const int32_t rows = bytes + info->aux_count;
    void **array = static_cast<void **>(calloc(static_cast<size_t>(rows) + 1, sizeof(void *)));
    for (int32_t row = 0; array && row < rows; ++row) {
        const size_t sample = row < bytes ? 1 : sizeof(int32_t);
        array[row] = allocate(static_cast<size_t>(width) * sample + (width == 0));
        if (!array[row]) {
            free_rows(array);
            return nullptr;
        }
    }
    return array;
}

void vyn__chan_free(void **rows)
{
    const ServiceCall call(STANDIN_CHAN_FREE);
    free_rows(rows);
}

// A name that begins with "/" is not searched for. An empty list is treated as no list. An empty
// element of a list is the current directory.
const char *vyn__build_handle(const char *search_list, const char *name, const char *suffix)
{
    static std::string path;
    const ServiceCall call(STANDIN_BUILD_HANDLE);
    if (call.fails) {
        return nullptr;
    }
    const bool searched = search_list && search_list[0] != '\0' && name[0] != '/';
    if (!searched && suffix[0] == '\0') {
        return name;
    }
    const std::string file = std::string(name) + suffix;
    if (!searched) {
        path = file;
        return path.c_str();
    }
    const std::string list = search_list;
    std::string first;
    for (size_t at = 0; at <= list.size();) {
        const size_t end = std::min(list.find(':', at), list.size());
        path = end == at ? "." : list.substr(at, end - at);
        path += path.back() == '/' ? file : "/" + file;
        if (access(path.c_str(), F_OK) == 0) {
            return path.c_str();
        }
        if (at == 0) {
            first = path;
        }
        at = end + 1;
    }
    path = first;
    return path.c_str();
}

// --- Standard formats and colour ------------------------------------------------------------

static const FormatEntry STANDARD_FORMATS[] = {
    {"NTSC 525-line video", 720, 486, 4.0F / 3},
    {"NTSC DV video", 720, 480, 4.0F / 3},
    {"PAL 625-line video", 720, 576, 4.0F / 3},
    {"NTSC square pixels", 648, 486, 4.0F / 3},
    {"PAL square pixels", 768, 576, 4.0F / 3},
    {"VGA", 640, 480, 4.0F / 3},
    {"HDTV 720-line video", 1280, 720, 16.0F / 9},
    {"HDTV 1080-line video", 1920, 1080, 16.0F / 9},
    {"UHDTV video", 3840, 2160, 16.0F / 9},
    {"Film 1K full aperture", 1024, 778, 1024.0F / 778},
    {"Film 2K full aperture", 2048, 1556, 2048.0F / 1556},
    {"Film 2K academy", 1828, 1332, 1828.0F / 1332},
    {"Film 2K anamorphic", 1828, 1556, 3656.0F / 1556},
    {"Film 4K full aperture", 4096, 3112, 4096.0F / 3112},
    {"Digital cinema 2K", 2048, 1080, 2048.0F / 1080},
    {"Digital cinema 4K", 4096, 2160, 4096.0F / 2160},
};

static const FormatEntry *next_format = STANDARD_FORMATS;

void FMT_init(nl_catd)
{
    const ServiceCall call(STANDIN_FMT_INIT);
    next_format = STANDARD_FORMATS;
}

const FormatEntry *FMT_info()
{
    const ServiceCall call(STANDIN_FMT_INFO);
    return call.fails || next_format == std::end(STANDARD_FORMATS) ? nullptr : next_format++;
}

float FMT_def_input_gamma()
{
    const ServiceCall call(STANDIN_GAMMA);
    return 1.7F;
}

// Chromaticities of video phosphors and daylight, x and y, with z making up the rest.
const float *CLR_def_red_primary()
{
    const ServiceCall call(STANDIN_COLOUR);
    static const float red[3] = {0.640F, 0.330F, 0.030F};
    return red;
}

const float *CLR_def_green_primary()
{
    const ServiceCall call(STANDIN_COLOUR);
    static const float green[3] = {0.300F, 0.600F, 0.100F};
    return green;
}

const float *CLR_def_blue_primary()
{
    const ServiceCall call(STANDIN_COLOUR);
    static const float blue[3] = {0.150F, 0.060F, 0.790F};
    return blue;
}

const float *CLR_def_white_point()
{
    const ServiceCall call(STANDIN_COLOUR);
    static const float white[3] = {0.3127F, 0.3290F, 0.3583F};
    return white;
}
