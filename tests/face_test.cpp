// What the module shows of itself, and how it takes requests.
#include "tests/support.h"

#include <sstream>

using FaceTest = ModuleTest;

TEST_F(FaceTest, TheDescriptorSaysWhatTheModuleCanDo)
{
    std::istringstream words("imageAccess 76 imageNumberOfChannels 3 imageBitsPerChannel 128 "
                             "imageNumberOfMattes 1 imageBitsPerMatte 128 imageNumberOfZChannels 1 "
                             "imageBitsPerZChannel 1073741824 imageOrientation 2 imageUsage 1 "
                             "imageMultiFrame 0 imageSupportsActiveWindow 0 imageAddExtension 0");
    int32_t value = 0;
    for (std::string name; words >> name >> value;) {
        EXPECT_EQ(*static_cast<int32_t *>(standin_symbol(&module, name.c_str())), value) << name;
    }
    std::istringstream strings("imageFormatString %s.%d%s imageKey vrl type image program Kelvane "
                               "version " MODULE_VERSION);
    for (std::string name, text; strings >> name >> text;) {
        EXPECT_EQ(standin_text(&module, name.c_str()), text) << name;
    }
}

// Writes an entry as its code and flags, the label as its place in the catalogue and its text, and
// the choices' values and labels.
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

TEST_F(FaceTest, TheCapabilityTableHasBothKindsOfRequest)
{
    const CapabilityEntry *table = nullptr;
    std::vector<int32_t> counts(3, -1);
    module.capability(&table, &counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(counts, (std::vector<int32_t>{1, 1, 2}));
    EXPECT_EQ(in_words(table), "0 1 901/367 Input Channels: 0 901/368 RGB only, 1 901/369 RGB and "
                               "matte, 2 901/370 RGB, matte and Z-depth, 1 0/0 null");
    EXPECT_EQ(in_words(table + 1), "1 2 901/371 Output Channels: 0 901/372 RGB only, 1 901/373 RGB "
                                   "and matte, 2 901/374 RGB, matte and Z-depth, 1 0/0 null");
    EXPECT_EQ(in_words(table + 2), "65535 0 0/0 null");
    EXPECT_EQ(table->choices->kind, 1);
}

TEST_F(FaceTest, RequestsChooseTheChannels)
{
    write_image(writer("a.pix", 1, 1, 3, 1, 1));
    struct Case {
        std::vector<std::pair<uint16_t, int32_t>> requests = {};
        int32_t mattes = 1, depths = 1;
        std::vector<int> told = {};
    };
    const Case cases[] = {
        {},
        {.requests = {{0, 0}}, .mattes = 0, .depths = 0},
        {.requests = {{0, 1}}, .depths = 0},
        {.requests = {{0, 0}, {0, 1}}, .depths = 0},      // the last one counts
        {.requests = {{0, 7}}, .mattes = 0, .depths = 0}, // no value is refused
        {.requests = {{1, 0}}, .told = {92}},             // belongs to writing
        {.requests = {{65535, 0}}, .told = {92}},         // ends the table
        {.requests = {{0, 1}, {5, 0}, {0, 0}}, .depths = 0, .told = {92}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.requests));
        ImageHandle *handle = reader("a.pix");
        for (const auto &[code, value] : c.requests) {
            standin_request(handle, code, value);
        }
        open_image(handle);
        EXPECT_EQ(told, c.told);
        EXPECT_EQ(handle->info->matte_count, c.mattes);
        EXPECT_EQ(handle->info->aux_count, c.depths);
        close_image(handle);
    }
}
