#include "board/faces.h"

#include <gtest/gtest.h>

#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "deployment/deployment.h"
#include "tests/support/signed_rows.h"
#include "tests/support/wallet_fixture.h"

namespace brickfall {
namespace {

using nlohmann::json;
using sandbox::Service;

ScoreRow Named(std::string handle, std::string paymail = "", std::string pay_addr = "") {
    ScoreRow row;
    row.handle = std::move(handle);
    row.paymail = std::move(paymail);
    row.pay_addr = std::move(pay_addr);
    return row;
}

TEST(Faces, TheKeyIsTheNameWithoutItsDomain) {
    const std::pair<ScoreRow, std::string> rows[] = {
        {Named("ada", "bob@orvane.test", "1x"), "ada"},
        {Named("ada@orvane.test@y"), "ada"},
        {Named("", "bob@orvane.test", "1x"), "bob"},
        {Named("@ada", "bob@orvane.test", "1x"), "1x"},  // nothing in front: the paymail is not asked
        {Named("", "@", ""), ""},
    };
    for (const auto& [row, key] : rows) EXPECT_EQ(FaceKey(row), key) << row.handle << " " << row.paymail;
}

TEST(Faces, AProfileNamesAWebAddressOrAnInscription) {
    const std::string content = std::string(kOrdinalsContentBaseUrl) + "/content/";
    const std::pair<json, std::string> rows[] = {
        {{{"avatar", "https://a"}, {"ord", "b_0"}}, "https://a"},
        {{{"avatar", "http://a"}, {"ord", "b_0"}, {"origin", "c_0"}}, content + "b_0"},
        {{{"avatar", ""}, {"ord", ""}, {"origin", "c_0"}}, content + "c_0"},
        {{{"ord", "https://b"}}, "https://b"},
        {{{"ord", "http://b"}}, ""},  // no outpoint
        {{{"avatar", 7}, {"ord", nullptr}, {"origin", "https://c"}}, "https://c"},
        {{{"avatar", "file:///etc/passwd"}, {"name", "ada"}}, ""},
        {json::array({"https://a"}), ""},
    };
    for (const auto& [profile, url] : rows) EXPECT_EQ(AvatarOfProfile(profile), url) << profile;
}

TEST(Faces, EachKeyIsAskedForOnceWhateverComesOfIt) {
    SandboxFixture services;
    sandbox::Sandbox& box = services.box;
    for (const auto& [alias, avatar] : {std::pair("ada", "whole"),
                                        {"bob", "short"},
                                        {"cyd", "missing"},
                                        {"dan", "huge"},
                                        {"eve", "least"},
                                        {"ian", "silent"}}) {
        const std::string picture = "https://ordinals.gorillapool.test/content/";
        box.Publish(IdentityOf(MakePlayer(alias), picture + avatar));
    }
    box.Publish(IdentityOf(MakePlayer("fay"), "the-origin_0"));
    box.AddFault(Service::kContent, ReplyTo("whole", std::string(5'000, '\0')));
    box.AddFault(Service::kContent, ReplyTo("short", std::string(32, 'x')));
    box.AddFault(Service::kContent, ReplyTo("least", std::string(33, 'x')));
    box.AddFault(Service::kContent, ReplyTo("huge", std::string(6'000, 'x')));
    box.AddFault(Service::kContent, ReplyTo("/content/content/the-origin_0", std::string(40, 'o')));
    services.Disturb(Service::kContent, sandbox::FaultKind::kDrop, "silent");
    box.AddFault(Service::kPaymail, ReplyTo("/gus@", "]moo["));

    std::vector<ScoreRow> rows = {Named("", "", "1BoatSLRHtKNngkdXEeobR76b53LETtpyT"), Named("")};
    for (const std::string handle :
         {"ada", "bob", "ada@orvane.test", "cyd", "dan", "ada", "eve", "fay", "gus", "hal", "i j",
          "k\r\nHost: l", "ian", "ian", "gus@orvane.test", "hal", "bob", "cyd", "dan"}) {
        rows.push_back(Named(handle));
    }
    // A picture as wide as its file is long; 5,000 bytes are none, and for 6,000 there is no memory.
    const FaceDecoder decode = [](const std::string& file, int max_side) -> std::optional<Image> {
        EXPECT_EQ(max_side, 152) << "sharp on a screen of four times the density";
        if (file.size() == 6'000) throw std::bad_alloc();
        if (file.size() == 5'000) return std::nullopt;
        return Image{static_cast<int>(file.size()), 1, {}};
    };
    Faces faces = {{"former", Image{1, 1, {0}}}};
    LoadFaces(rows, decode, faces);
    EXPECT_EQ(faces, (Faces{{"eve", Image{33, 1, {}}}, {"fay", Image{40, 1, {}}}}));
    std::vector<std::string> profiles;
    for (const char* const alias : {"ada", "bob", "cyd", "dan", "eve", "fay", "gus", "hal", "ian"}) {
        profiles.push_back(std::string("GET /api/bsvalias/public-profile/") + alias + "@orvane.test");
    }
    EXPECT_EQ(box.Requests(Service::kPaymail), profiles);
    EXPECT_EQ(box.Requests(Service::kContent).size(), 7u);
}

}  // namespace
}  // namespace brickfall
