// What the module shows of itself, and how it takes requests.
#include "tests/support.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>

extern "C" int copy_in_c(const CapabilityEntry *table, int choice,
                         decltype(&imageReadOpen) read_open, ImageHandle *from,
                         decltype(&imageWriteOpen) write_open, ImageHandle *to);

using FaceTest = ModuleTest;

TEST_F(FaceTest, Descriptor)
{
    const std::pair<const char *, int32_t> words[] = {{"imageAccess", 0x4C},
                                                      {"imageNumberOfChannels", 3},
                                                      {"imageBitsPerChannel", 0x80},
                                                      {"imageNumberOfMattes", 1},
                                                      {"imageBitsPerMatte", 0x80},
                                                      {"imageNumberOfZChannels", 1},
                                                      {"imageBitsPerZChannel", 0x40000000},
                                                      {"imageOrientation", 2},
                                                      {"imageUsage", 1},
                                                      {"imageMultiFrame", 0},
                                                      {"imageSupportsActiveWindow", 0},
                                                      {"imageAddExtension", 0}};
    const std::pair<const char *, const char *> strings[] = {{"imageFormatString", "%s.%d%s"},
                                                             {"imageKey", "vrl"},
                                                             {"type", "image"},
                                                             {"version", MODULE_VERSION},
                                                             {"program", "Kelvane"}};
    for (const auto &[name, value] : words) {
        EXPECT_EQ(*static_cast<int32_t *>(standin_symbol(&module, name)), value) << name;
    }
    for (const auto &[name, value] : strings) {
        EXPECT_STREQ(*static_cast<char **>(standin_symbol(&module, name)), value) << name;
    }
}

TEST_F(FaceTest, NamesReachTheModulesOwnVariables)
{
    standin_unload(&module);
    void *decoy = dlopen(DECOY_PATH, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(decoy, nullptr) << dlerror();
    ASSERT_EQ(standin_load(module_path, &module), nullptr);
    EXPECT_STREQ(*static_cast<char **>(dlsym(decoy, "imageName")), "decoy");
    EXPECT_STREQ(*static_cast<char **>(standin_symbol(&module, "imageName")), "Vorla");
    make("r/a.pix", colour_header(1, 1) + hex("01000000"));
    EXPECT_EQ(read("a.pix").info.orientation, 2);
    dlclose(decoy);
}

TEST_F(FaceTest, InitStopsAtTheFirstNameThatCannotBeMade)
{
    const char *const names[] = {"imageName", "imageExtension", "imageNameSyntax"};
    for (int made = 0; made < 3; ++made) {
        standin_unload(&module);
        standin_fail(made < 2 ? STANDIN_DEFINE : STANDIN_SAVE, made < 2 ? made + 1 : 1, false);
        // The stand-in would unload a module that failed.
        void *library = dlopen(module_path, RTLD_NOW);
        const auto init = reinterpret_cast<int32_t (*)()>(dlsym(library, "imageInit"));
        EXPECT_EQ(init(), 0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(*static_cast<char **>(dlsym(library, names[i])) != nullptr, i < made);
        }
        dlclose(library);
        standin_reset_faults();
        ASSERT_EQ(standin_load(module_path, &module), nullptr);
    }
}

// The table in words: code and flags, catalogue number and label, then the choices' values, numbers
// and labels.
static std::string in_words(const CapabilityEntry *entry)
{
    const auto label = [](int32_t set, int32_t number, const char *text) {
        return std::to_string(set) + "/" + std::to_string(number) + " " + (text ? text : "null");
    };
    std::string words = std::to_string(entry->code) + " " + std::to_string(entry->flags) + " " +
                        label(entry->label_set, entry->label_number, entry->label);
    for (int i = 0; entry->choices && i < 4; ++i) {
        const CapabilityChoice &row = entry->choices->rows[i];
        words += (i == 0 ? ": " : ", ") + std::to_string(row.value) + " " +
                 label(row.label_set, row.label_number, row.label);
    }
    return words;
}

TEST_F(FaceTest, CapabilityTable)
{
    const CapabilityEntry *table = nullptr;
    int32_t counts[3] = {-1, -1, -1};
    module.capability(&table, &counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(counts[0], 1);
    EXPECT_EQ(counts[1], 1);
    EXPECT_EQ(counts[2], 2);
    EXPECT_EQ(in_words(table), "0 1 901/367 Input Channels: 0 901/368 RGB only, 1 901/369 RGB and "
                               "matte, 2 901/370 RGB, matte and Z-depth, 1 0/0 null");
    EXPECT_EQ(in_words(table + 1), "1 2 901/371 Output Channels: 0 901/372 RGB only, 1 901/373 RGB "
                                   "and matte, 2 901/374 RGB, matte and Z-depth, 1 0/0 null");
    EXPECT_EQ(in_words(table + 2), "65535 0 0/0 null");
    EXPECT_EQ(table->choices->kind, 1);
}

TEST_F(FaceTest, RequestsChooseTheChannels)
{
    make("r/a.pix", colour_header(1, 1) + hex("01000000"));
    make("mask/a.pix", colour_header(1, 1, 8) + hex("0101"));
    make("depth/a.pix", depth_header(1, 1) + hex("00000001"));
    struct Case {
        std::vector<std::pair<uint16_t, int32_t>> requests = {};
        int32_t choice = 2, mattes = 1, depths = 1;
        bool warned = false;
    };
    const Case cases[] = {
        {},
        {.requests = {{0, 0}}, .choice = 0, .mattes = 0, .depths = 0},
        {.requests = {{0, 1}}, .choice = 1, .depths = 0},
        {.requests = {{0, 2}}},
        {.requests = {{0, 0}, {0, 1}}, .choice = 1, .depths = 0},      // the last one counts
        {.requests = {{0, 7}}, .choice = 7, .mattes = 0, .depths = 0}, // no value is refused
        {.requests = {{0, 0}, {0, -1}}},
        {.requests = {{1, 0}}, .warned = true},     // belongs to writing
        {.requests = {{65535, 0}}, .warned = true}, // ends the table
        {.requests = {{0, 1}, {5, 0}, {0, 0}}, .choice = 1, .depths = 0, .warned = true},
    };
    for (const Case &c : cases) {
        vyn__err = 0;
        const Picture picture = read("a.pix", [&](ImageHandle *handle) {
            for (const auto &[code, value] : c.requests) {
                standin_request(handle, code, value);
            }
        });
        EXPECT_EQ(picture.result, 1);
        EXPECT_EQ(picture.state.channel_choice, c.choice);
        EXPECT_EQ(picture.info.matte_count, c.mattes);
        EXPECT_EQ(picture.info.aux_count, c.depths);
        EXPECT_EQ(picture.code, c.warned ? -16 : 0);
        EXPECT_EQ(messages(), c.warned ? std::vector<int>{92} : std::vector<int>{});
    }
}

TEST_F(FaceTest, AHostInCCopiesAnImage)
{
    const Bytes colour = colour_header(2, 2) + hex("01010203 01040506 02070809");
    const Bytes matte = colour_header(2, 2, 8) + hex("0211 0122 0133");
    const Bytes depth = depth_header(2, 2) + hex("00000001 00000002 7FFFFFFF 80000000");
    const CapabilityEntry *table = nullptr;
    int32_t counts[3];
    module.capability(&table, &counts[0], &counts[1], &counts[2]);
    for (int choice = PIX_CHANNELS_RGB; choice <= PIX_CHANNELS_RGB_MATTE_Z; ++choice) {
        clear();
        make("r/a.pix", colour);
        make("mask/a.pix", matte);
        make("depth/a.pix", depth);
        EXPECT_EQ(copy_in_c(table, choice, module.read_open,
                            standin_new_reader(path("r/a.pix").c_str()), module.write_open,
                            writer("b.pix", 0, 0, 0)),
                  0);
        EXPECT_EQ(contents("r/b.pix"), colour);
        EXPECT_EQ(contents("mask/b.pix"), choice >= PIX_CHANNELS_RGB_MATTE ? matte : Bytes());
        EXPECT_EQ(contents("depth/b.pix"), choice >= PIX_CHANNELS_RGB_MATTE_Z ? depth : Bytes());
        EXPECT_EQ(messages(), std::vector<int>());
    }
}

TEST_F(FaceTest, LabelsAreThoseOfTheCatalogueOrElseTheDefaults)
{
    std::ofstream source(path("words"));
    source << "$set 901\n";
    for (int number = 1; number < 400; ++number) {
        source << number << " label " << number << "\n";
    }
    source.close();
    ASSERT_EQ(system(("gencat " + path("catalogue") + " " + path("words")).c_str()), 0);
    for (const bool translated : {false, true}) {
        standin_unload(&module);
        vyn__msg_cat = translated ? catopen(path("catalogue").c_str(), 0) : nullptr;
        ASSERT_EQ(standin_load(module_path, &module), nullptr);
        const std::string mask = translated ? "label 344" : "mask";
        const std::string depth = translated ? "label 343" : "depth";
        make("r/a", colour_header(1, 1) + hex("01000000"));
        make(mask + "/a", colour_header(1, 1, 8) + hex("0101"));
        make(depth + "/a", depth_header(1, 1) + hex("00000001"));
        std::vector<std::string> labels;
        for (const char *name : {"imageName", "imageExtension", "imageNameSyntax"}) {
            labels.emplace_back(standin_text(&module, name));
        }
        ImageHandle *handle = standin_new_reader(path("r/a").c_str());
        ASSERT_EQ(module.read_open(handle), 1);
        EXPECT_EQ(handle->info->matte_count + handle->info->aux_count, 2);
        labels.insert(labels.end(), handle->description, handle->description + 7);
        labels.insert(labels.end(), {handle->compression, handle->info->format_label});
        EXPECT_EQ(handle->close_proc(handle), 0);
        std::vector<std::string> expected = {"Vorla", ".pix", "Name.#"};
        expected.resize(10, "unknown");
        expected.insert(expected.end(), {"run length encoded", "unknown"});
        const int catalogue[] = {254, 100, 210, 32, 145, 141, 149, 129, 147, 137, 4, 133};
        for (size_t i = 0; translated && i < expected.size(); ++i) {
            expected[i] = "label " + std::to_string(catalogue[i]);
        }
        EXPECT_EQ(labels, expected);
    }
    catclose(vyn__msg_cat);
    vyn__msg_cat = nullptr;
}
