#include "problem/index_map.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "check.hpp"

using nalora::IndexMap;

namespace {

using Shadow = std::map<uint64_t, int32_t>;

void expect_same(const IndexMap& map, const Shadow& shadow, const std::vector<uint64_t>& serials) {
    for (const uint64_t serial : serials) {
        const auto found = shadow.find(serial);
        CHECK(map.find(serial) == (found == shadow.end() ? -1 : found->second));
        CHECK(map.contains(serial) == (found != shadow.end()));
    }
}

// Serials as they come about: dense runs, a few far apart, in any order.
std::vector<uint64_t> some_serials(std::mt19937& random) {
    std::vector<uint64_t> serials;
    for (int run = 0; run < 4; ++run) {
        uint64_t serial = random() % 200000 + 1;
        for (int i = 0; i < 300; ++i) serials.push_back(serial += random() % 3);
    }
    std::shuffle(serials.begin(), serials.end(), random);
    return serials;
}

}  // namespace

TEST("index map: behaves as an ordered map does") {
    for (unsigned seed = 0; seed < 50; ++seed) {
        std::mt19937 random(seed);
        const std::vector<uint64_t> serials = some_serials(random);
        IndexMap map;
        Shadow shadow;
        for (int step = 0; step < 2000; ++step) {
            const uint64_t serial = serials[random() % serials.size()];
            if (random() % 3 == 0) {
                map.erase(serial);
                shadow.erase(serial);
            } else {
                map.set(serial, step);
                shadow[serial] = step;
            }
        }
        expect_same(map, shadow, serials);

        const IndexMap copy = map.copy();
        map.clear();
        expect_same(map, {}, serials);
        expect_same(copy, shadow, serials);
        map.set(serials[0], 7);  // a cleared map starts anywhere again
        expect_same(map, {{serials[0], 7}}, serials);
        expect_same(copy, shadow, serials);
    }
}

TEST("index map: removals renumber, at once or in the end") {
    std::mt19937 random(3);
    IndexMap map;
    std::vector<uint64_t> live;
    uint64_t next = 100;
    for (int step = 0; step < 2000; ++step) {
        std::vector<int32_t> gone;
        for (int32_t i = 0; i < static_cast<int32_t>(live.size()); ++i) {
            if (random() % 40 == 0) gone.push_back(i);
        }
        map.remove(gone);
        for (auto i = gone.rbegin(); i != gone.rend(); ++i) {
            CHECK(map.gaps().index(map.gaps().position(*i)) == *i);
            map.erase(live[*i]);
            live.erase(live.begin() + *i);
        }
        for (unsigned k = random() % 5; k > 0; --k) {
            map.set(next, static_cast<int32_t>(live.size()));
            live.push_back(next);
            next += 1 + random() % 3;
        }
        if (random() % 50 == 0) map.close_gaps();
        for (int32_t i = 0; i < static_cast<int32_t>(live.size()); ++i) {
            if (!CHECK(map.find(live[i]) == i)) return;
        }
    }
}

TEST("index map: what has come and gone leaves nothing") {
    IndexMap map;
    map.set(700, 0);  // stays
    for (uint64_t serial = 1000; serial < 2'000'000; serial += 2) {
        map.set(serial, 1), map.set(serial + 1, 2);
        if (serial % 3 == 0) {
            map.remove({1, 2});
        } else {
            map.erase(serial), map.erase(serial + 1);
        }
        if (serial % 100 == 0) map.close_gaps();
        CHECK(map.page_count() <= 3);
    }
    CHECK(map.find(700) == 0);
    for (uint64_t serial = 3'000'000; serial < 5'000'000; serial += 512) map.set(serial, 7);
    map.erase(700);
    CHECK(map.find(3'000'512) == 7 && map.find(700) == -1);
}

TEST("index map: falling and far serials") {
    // Falling serials leave spare room in front of the first page.
    constexpr uint64_t kCount = 20'000'000;
    IndexMap map;
    for (uint64_t serial = kCount; serial > 0; serial -= 50) {
        map.set(serial, static_cast<int32_t>(serial % 1000));
    }
    CHECK(map.find(kCount) == 0);
    CHECK(map.find(50) == 50);
    CHECK(map.find(49) == -1);
    CHECK(map.find(uint64_t{1} << 60) == -1);
    CHECK(map.find(0) == -1);
}
