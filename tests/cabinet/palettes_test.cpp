// What the palettes promise to each kind of eyes.
#include "cabinet/palettes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "game/simulation.h"
#include "tests/support/color_math.h"

namespace brickfall {
namespace {

// Of the pairs that Sharma, Wu and Dalal publish, one for each branch and for each of its edges.
TEST(Ciede2000, GivesThePublishedDifferences) {
    const struct {
        Triple one, other;
        double difference;
    } pairs[] = {
        {{50, 2.6772, -79.7751}, {50, 0, -82.7485}, 2.0425},
        {{50, -1.3802, -84.2814}, {50, 0, -82.7485}, 1.0000},
        {{50, 0, 0}, {50, -1, 2}, 2.3669},
        {{50, 2.4900, -0.0010}, {50, -2.4900, 0.0009}, 7.1792},
        {{50, 2.4900, -0.0010}, {50, -2.4900, 0.0011}, 7.2195},
        {{50, -0.0010, 2.4900}, {50, 0.0010, -2.4900}, 4.8045},
        {{50, -0.0010, 2.4900}, {50, 0.0011, -2.4900}, 4.7461},
        {{50, 2.5, 0}, {50, 0, -2.5}, 4.3065},
        {{50, 2.5, 0}, {73, 25, -18}, 27.1492},
        {{50, 2.5, 0}, {61, -5, 29}, 22.8977},
        {{50, 2.5, 0}, {56, -27, -3}, 31.9030},
        {{50, 2.5, 0}, {58, 24, 15}, 19.4535},
        {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
        {{22.7233, 20.0904, -46.6940}, {23.0331, 14.9730, -42.5619}, 2.0373},
        {{90.8027, -2.0831, 1.4410}, {91.1528, -1.6435, 0.0447}, 1.4441},
        {{6.7747, -0.2908, -2.4247}, {5.8714, -0.0985, -2.2286}, 0.6377},
        {{2.0776, 0.0795, -1.1350}, {0.9033, -0.0636, -0.5514}, 0.9082},
    };
    for (const auto& [one, other, difference] : pairs) {
        EXPECT_NEAR(Ciede2000(one, other), difference, 0.00005);
        EXPECT_NEAR(Ciede2000(other, one), difference, 0.00005);
    }
}

TEST(Palettes, KeepEveryRowAndStrengthApartForTheirEyes) {
    const struct {
        Palette palette;
        const std::array<Triple, 3>& eyes;
        double before_the_floor;  // contrast
    } kinds[] = {{Palette::kContrast, kNormal, 7},
                 {Palette::kProtan, kProtanopia, 2},
                 {Palette::kDeutan, kDeuteranopia, 2},
                 {Palette::kTritan, kTritanopia, 2}};
    for (const auto& [palette, eyes, before_the_floor] : kinds) {
        SCOPED_TRACE(static_cast<int>(palette));
        std::vector<Triple> seen;
        for (int row = 0; row < kBrickRows; ++row) {
            for (const int hits : {1, 2, 3}) {
                const Color color = BrickColor(palette, row, hits);
                seen.push_back(Seen(eyes, color));
                EXPECT_GE(Contrast(seen.back(), Seen(eyes, Rgb(0x040A08))), before_the_floor) << row << hits;
            }
            EXPECT_EQ(BrickColor(palette, row, 9), BrickColor(palette, row, 3));
        }
        double least = 1'000;
        for (std::size_t i = 0; i < seen.size(); ++i) {
            for (std::size_t j = 0; j < i; ++j)
                least = std::min(least, Ciede2000(Lab(seen[i]), Lab(seen[j])));
        }
        EXPECT_GE(least, 10);
    }
}

}  // namespace
}  // namespace brickfall
