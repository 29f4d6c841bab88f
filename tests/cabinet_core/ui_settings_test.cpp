#include "cabinet/ui_settings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "base/files.h"
#include "cabinet/sound.h"
#include "cabinet/window_placement.h"
#include "tests/support/temp_folder.h"

namespace brickfall {
namespace {

using nlohmann::json;

struct Settings {
    Settings() { Reset(); }
    ~Settings() { Reset(); }
    static void Reset() {
        music_on = sfx_on = true;
        music_vol = 70;
        sfx_vol = 85;
        ui_doc = json::object();
    }
    std::string Path() const { return data.InStore("brickfall_ui.json"); }
    void Load(const std::string& content) {
        Reset();
        data.Put("brickfall_ui.json", content);
        LoadUiSettings();
    }
    static bool AreDefaults() { return music_on && sfx_on && music_vol == 70 && sfx_vol == 85; }
    TempUserData data;
};

TEST(UiSettings, ComeBackAsTheyWereSavedWithForeignKeys) {
    Settings settings;
    LoadUiSettings();
    EXPECT_FALSE(FileExists(settings.Path()));  // made by the first save
    const std::string whole =
        R"({"music": false, "sfx": false, "music_vol": 0, "sfx_vol": 100, "theirs": {"a": [1, "x"]}})";
    settings.Load(whole);
    EXPECT_TRUE(!music_on && !sfx_on && music_vol == 0 && sfx_vol == 100);
    music_vol = 33;
    const std::string reader = settings.data.InStore("as a reader has it open");
    ASSERT_EQ(::link(settings.Path().c_str(), reader.c_str()), 0);
    SaveUiSettings();
    EXPECT_EQ(ReadFile(reader), whole) << "a new file takes its place: nobody ever sees half a one";
    Settings::Reset();
    LoadUiSettings();
    EXPECT_TRUE(!music_on && music_vol == 33);
    EXPECT_EQ(ui_doc["theirs"], json::parse(R"({"a": [1, "x"]})"));
    EXPECT_EQ(ReadFile(settings.Path())->substr(0, 4), "{\n  ");  // for people to read
}

TEST(UiSettings, TakeWhatSomeEyesNeedAndNeverAddIt) {
    Settings settings;
    const std::pair<const char*, EyeSettings> files[] = {
        {"{}", {}},
        {R"({"steady": true, "palette": "contrast", "strength_marks": true})",
         {true, Palette::kContrast, true}},
        {R"({"steady": false, "palette": "standard", "strength_marks": false})", {}},
        {R"({"palette": "protan"})", {.palette = Palette::kProtan}},
        {R"({"palette": "deutan"})", {.palette = Palette::kDeutan}},
        {R"({"palette": "tritan"})", {.palette = Palette::kTritan}},
        {R"({"steady": 1, "palette": "Protan", "strength_marks": "true"})", {}},
        {R"({"steady": null, "palette": ["protan"], "strength_marks": {}})", {}},
    };
    for (const auto& [file, eyes] : files) {
        settings.Load(file);
        EXPECT_EQ(ReadEyeSettings(), eyes) << file;
        const json before = ui_doc;
        SaveUiSettings();
        const json saved = json::parse(ReadFile(settings.Path()).value_or(""));
        for (const char* const key : {"steady", "palette", "strength_marks"}) {
            EXPECT_EQ(saved.contains(key), before.contains(key)) << file;
            if (before.contains(key)) {
                EXPECT_EQ(saved[key], before[key]) << file;
            }
        }
    }
}

TEST(UiSettings, KeepDefaultsForEveryDamage) {
    Settings settings;
    std::vector<std::string> damaged = {
        "[]",
        "null",
        "\xff\xfe{}",
        "{\"music\":false}x",
        "{\"music\":0,\"sfx\":\"no\"}",
        "{\"music_vol\":101,\"sfx_vol\":-1}",
        "{\"music_vol\":\"70\",\"sfx_vol\":1.0}",
        "{\"music_vol\":18446744073709551615,\"sfx_vol\":9223372036854775808}",
        "{\"music_vol\":1e2,\"sfx_vol\":null}"};
    const std::string whole = R"({"music":false,"sfx":false,"music_vol":1,"week_scores":[{"score":"é"}]})";
    for (std::size_t length = 0; length < whole.size(); ++length) damaged.push_back(whole.substr(0, length));
    for (const char* const opening : {"[", "{\"a\":"}) {
        std::string& nested = damaged.emplace_back();
        while (nested.size() < 10'000'000) nested += opening;
    }
    for (const std::string& content : damaged) {
        settings.Load(content);
        EXPECT_TRUE(Settings::AreDefaults() && ui_doc.is_object()) << content.substr(0, 100);
        SaveUiSettings();
    }
}

TEST(UiSettings, OfAFileThatCouldNotBeReadAreNotSavedOverIt) {
    Settings settings;
    settings.Load(std::string(1'000, '['));
    EXPECT_TRUE(Settings::AreDefaults());
    // It can be read again later, and still nobody knows what it held.
    for (const std::string& content :
         {std::string(1'000, '['), std::string(R"({"best_ever": {"score": 9}})")}) {
        WriteFile(settings.Path(), content);
        SaveUiSettings();
        EXPECT_EQ(ReadFile(settings.Path()), content);
    }
    RemoveFile(settings.Path());
    SaveUiSettings();
    EXPECT_TRUE(FileExists(settings.Path()));
}

TEST(WindowPlacement, IsSavedUnlessItSaysNothing) {
    Settings settings;
    SaveWindowPlacement({{10, -20, 900, 700}, true, false});
    const json before = ui_doc;
    EXPECT_EQ(before["y"], -20);
    EXPECT_EQ(before["max"], true);
    SaveWindowPlacement({{1, 1, 900, 700}, false, true});
    SaveWindowPlacement({{1, 1, 79, 700}, false, false});
    SaveWindowPlacement({{1, 1, 900, 79}, false, false});
    EXPECT_EQ(ui_doc, before);
}

TEST(WindowPlacement, ComesBackOnlyOntoAMonitorThatIsThere) {
    Settings settings;
    const Monitor monitors[] = {{{0, 0, 1920, 1080}, {0, 0, 1920, 1040}},
                                {{1920, 0, 1280, 1024}, {1920, 0, 1280, 1024}}};
    const struct {
        const char* document;
        std::optional<Point> position;
        int height = 1300;
    } cases[] = {
        {"{}", std::nullopt},
        {R"({"x":5,"y":6})", Point{5, 6}},
        {R"({"x":5,"y":6,"w":200,"h":1500,"max":true})", Point{5, 6}, 1500},
        {R"({"x":5,"y":6,"h":399})", Point{5, 6}},
        {R"({"x":3199,"y":900})", Point{3199, 900}},
        {R"({"x":3200,"y":6,"max":true})", std::nullopt},
        {R"({"x":-1320,"y":0})", std::nullopt},  // its right edge touches nothing
        {R"({"x":-1319,"y":0})", Point{-1319, 0}},
        {R"({"x":-199,"y":0,"w":200})", Point{-199, 0}},
        {R"({"x":-1000,"y":0,"w":80})", Point{-1000, 0}},  // too narrow counts as 1320
        {R"({"x":5})", std::nullopt},
        {R"({"x":5,"y":"6","h":1500})", std::nullopt},
        {R"({"x":5,"y":6,"max":1})", std::nullopt},
        {R"({"x":5.0,"y":6})", std::nullopt},
        {R"({"x":9223372036854775807,"y":-9223372036854775808})", std::nullopt},
        {R"({"x":18446744073709551615,"y":0,"w":99999999999,"h":99999999999})", std::nullopt},
    };
    for (const auto& [document, position, height] : cases) {
        ui_doc = json::parse(document);
        const RestoredPlacement restored = RestoreWindowPlacement(monitors);
        EXPECT_EQ(restored.position, position) << document;
        EXPECT_EQ(restored.size, (Size{1320, height})) << document;
    }
}

TEST(WindowPlacement, PutsAToolWindowBesideTheMainOne) {
    const Rect work = {0, 0, 1920, 1040};
    const std::pair<Rect, Point> cases[] = {
        {{100, 50, 1000, 900}, {1108, 50}},   {{800, 50, 1000, 900}, {252, 50}},  // no room to the right
        {{100, 50, 1800, 900}, {0, 50}},                                          // nor to the left
        {{100, 400, 1000, 900}, {1108, 162}}, {{100, -40, 1000, 900}, {1108, 0}},
        {{100, 50, 1272, 900}, {1380, 50}}};  // fits to the pixel
    for (const auto& [main, at] : cases) EXPECT_EQ(PlaceBeside(main, work, {540, 878}), at) << main.w;
}

}  // namespace
}  // namespace brickfall
