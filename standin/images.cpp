// Loading modules; making handles and releasing everything that belongs to them.
#include "standin/faults.h"
#include "standin/standin.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include <deque>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// A handle and what the host keeps for it.
struct Image {
    ImageHandle handle = {}; // first: the module knows this address alone
    std::string file_name;
    std::deque<CapabilityRequest> requests;
    std::vector<CapabilityRequest *> request_array;
};

static_assert(std::is_standard_layout_v<Image>);

Image *image_of(ImageHandle *handle)
{
    return reinterpret_cast<Image *>(handle);
}

template <class Function>
bool find(const StandinModule *module, const char *name, Function *function)
{
    *function = reinterpret_cast<Function>(standin_symbol(module, name));
    return *function != nullptr;
}

} // namespace

// --- Modules --------------------------------------------------------------------------------

const char *standin_load(const char *path, StandinModule *module)
{
    *module = {};
    module->library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!module->library) {
        return dlerror();
    }
    const char *failure = nullptr;
    if (!find(module, "imageInit", &module->init) ||
        !find(module, "imageCapability", &module->capability) ||
        !find(module, "imageIsFile", &module->is_file) ||
        !find(module, "imageReadOpen", &module->read_open) ||
        !find(module, "imageWriteOpen", &module->write_open)) {
        failure = "not an image format module";
    } else if (module->init() != 1) {
        failure = "the module could not make its names";
    }
    if (failure) {
        standin_unload(module);
    }
    return failure;
}

void *standin_symbol(const StandinModule *module, const char *name)
{
    return dlsym(module->library, name);
}

const char *standin_text(const StandinModule *module, const char *name)
{
    const void *address = standin_symbol(module, name);
    const char *text = address ? *static_cast<const char *const *>(address) : nullptr;
    return text ? text : "unknown";
}

void standin_unload(StandinModule *module)
{
    if (!module->library) {
        return;
    }
    // The name syntax is an STR_save string that the module keeps.
    if (char **syntax = static_cast<char **>(standin_symbol(module, "imageNameSyntax"))) {
        free(*syntax);
        *syntax = nullptr;
    }
    dlclose(module->library);
    *module = {};
}

// --- Handles --------------------------------------------------------------------------------

ImageHandle *standin_new_reader(const char *file_name)
{
    Image *image = new Image;
    image->file_name = file_name;
    image->handle.file_name = image->file_name.c_str();
    image->handle.format_name = "Vorla";
    image->handle.name_is_exact = 1;
    return &image->handle;
}

ImageHandle *standin_new_writer(const char *file_name, int32_t width, int32_t height,
                                int32_t channels, int32_t mattes, int32_t depths)
{
    ImageHandle *handle = standin_new_reader(file_name);
    handle->image_count = 1;
    handle->info = static_cast<ImageInfo *>(calloc(1, sizeof(ImageInfo)));
    if (!handle->info) {
        abort();
    }
    vyn__init_ifd(handle);
    ImageInfo *info = handle->info;
    info->data_window = {0, width - 1, 0, height - 1};
    info->channel_format = strdup(VYN_LITERAL_HARD_FORMAT_TYPE_RGB);
    info->channel_count = channels;
    info->matte_count = mattes;
    info->aux_count = depths;
    info->aux_width = 31;
    return handle;
}

void standin_request(ImageHandle *handle, uint16_t code, int32_t value)
{
    Image *image = image_of(handle);
    image->requests.push_back({code, {}, value});
    if (!image->request_array.empty()) {
        image->request_array.pop_back(); // the null that ends the array
    }
    image->request_array.push_back(&image->requests.back());
    image->request_array.push_back(nullptr);
    handle->capability_requests = image->request_array.data();
}

// Everything on a handle came from malloc, here or in the module.
void vyn__free_obj(ImageHandle *handle)
{
    const ServiceCall call(STANDIN_FREE_OBJ);
    if (handle->priv) {
        free(handle->priv->state);
        free(handle->priv);
    }
    for (char *text : handle->description) {
        free(text);
    }
    free(handle->compression);
    if (handle->info) {
        free(handle->info->format_label);
        free(handle->info->channel_format);
        free(handle->info);
    }
    delete image_of(handle);
}
