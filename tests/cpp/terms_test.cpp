// The shared logs and term containers, against plain maps that are updated term by term.
#include "model/terms.hpp"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <utility>

#include "check.hpp"
#include "model/serial_table.hpp"

namespace {

using namespace nalora;

// Handles are addresses in `references`, which counts what every log holds.
std::array<int, 4096> references;
std::function<void()>* on_release = nullptr;
std::size_t allocated = 0;

struct CountingOwner {
    static void retain(void* var) noexcept { ++*static_cast<int*>(var); }
    static void release(void* var) noexcept {
        --*static_cast<int*>(var);
        if (on_release != nullptr) (*on_release)();
    }
    static void* allocate(std::size_t bytes) noexcept {
        allocated += bytes;
        return std::malloc(bytes);
    }
    static void* reallocate(void* memory, std::size_t old_bytes, std::size_t bytes) noexcept {
        allocated += bytes - old_bytes;
        return std::realloc(memory, bytes);
    }
    static void deallocate(void* memory, std::size_t bytes) noexcept {
        allocated -= bytes;
        std::free(memory);
    }
};

using Linear = Terms<LinearEntry, CountingOwner>;
using Quadratic = Terms<QuadraticEntry, CountingOwner>;

bool all_released() {
    for (const int count : references) {
        if (count != 0) return false;
    }
    return allocated == 0;
}

LinearEntry entry(uint64_t serial, double coef) {
    return {serial, &references[serial % references.size()], coef};
}
QuadraticEntry entry(uint64_t serial1, uint64_t serial2, double coef) {
    if (serial1 > serial2) std::swap(serial1, serial2);
    return {serial1, serial2, &references[serial1], &references[serial2], coef};
}

// The reference: an ordered map, absent when the expression never had a term.
template <class Key>
struct Map {
    std::optional<std::map<Key, double>> terms;

    void ensure() {
        if (!terms) terms.emplace();
    }
    // Adding zero changes nothing, but for a quadratic term that scaling made zero: it goes.
    void add(Key key, double coef) {
        if (coef == 0.0 && (std::is_integral_v<Key> || !terms || !terms->contains(key))) return;
        ensure();
        const auto [it, inserted] = terms->try_emplace(key, coef);
        if (inserted) return;
        it->second += coef;
        if (it->second == 0.0) terms->erase(it);
    }
    void add_scaled(const Map& other, double factor) {
        if (!other.terms) return;
        const auto copy = *other.terms;
        for (const auto& [key, coef] : copy) add(key, factor * coef);
    }
    Map scaled(double factor) const {
        Map result = *this;
        if (result.terms) {
            for (auto& [key, coef] : *result.terms) coef *= factor;
        }
        return result;
    }
};

uint64_t key_of(const LinearEntry& e) { return e.serial; }
std::pair<uint64_t, uint64_t> key_of(const QuadraticEntry& e) { return {e.serial1, e.serial2}; }

template <class Container, class Key>
bool agree(const Container& terms, const Map<Key>& map) {
    if (terms.exists() != map.terms.has_value()) return false;
    const auto entries = terms.canonical();
    if (!terms.exists()) return entries.empty();
    if (entries.size() != map.terms->size()) return false;
    auto it = map.terms->begin();
    for (const auto& e : entries) {
        if (key_of(e) != it->first || e.coef != it->second) return false;
        ++it;
    }
    return true;
}

// A handful of expressions that are made from each other, each with its map.
template <class Container, class Key>
class History {
  public:
    explicit History(unsigned seed) : random_(seed) {}

    template <class MakeEntry>
    void run(int steps, unsigned variables, MakeEntry make_entry) {
        constexpr double kFactors[] = {1.0, -1.0, 0.5, 0.0, -3.0};
        for (int step = 0; step < steps; ++step) {
            const unsigned from = pick(kCount), to = pick(kCount), other = pick(kCount);
            const double factor = kFactors[pick(5)];
            auto [terms, map] = std::pair(expressions_[from].share(), maps_[from]);
            switch (pick(8)) {
                case 0:
                    terms = terms.scaled(factor, pick(3));
                    map = map.scaled(factor);
                    break;
                case 1:
                    terms.add_scaled(expressions_[other], factor);
                    map.add_scaled(maps_[other], factor);
                    break;
                case 2:
                    terms.add_scaled(terms, factor);
                    map.add_scaled(map, factor);
                    break;
                case 3:
                    terms.ensure(pick(40));
                    map.ensure();
                    break;
                case 4:
                    CHECK(agree(terms, map));
                    terms.canonical();
                    break;
                default:
                    for (unsigned n = pick(6); n > 0; --n) {
                        const auto e = make_entry(pick(variables), pick(variables), coefficient());
                        terms.add(e);
                        map.add(key_of(e), e.coef);
                    }
            }
            expressions_[to] = std::move(terms);
            maps_[to] = std::move(map);
            if (pick(4) == 0) {
                expressions_[from].clear();
                maps_[from] = {};
            }
        }
        for (unsigned i = 0; i < kCount; ++i) CHECK(agree(expressions_[i], maps_[i]));
    }

  private:
    static constexpr unsigned kCount = 6;

    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }
    // Few different values, so that terms cancel often.
    double coefficient() { return static_cast<double>(pick(7)) - 3.0; }

    std::mt19937 random_;
    Container expressions_[kCount];
    Map<Key> maps_[kCount];
};

}  // namespace

TEST("terms: random histories agree with maps") {
    for (unsigned seed = 0; seed < 2000; ++seed) {
        History<Linear, uint64_t> linear(seed);
        linear.run(60, 3 + seed % 40, [](uint64_t x, uint64_t, double c) { return entry(x, c); });
        History<Quadratic, std::pair<uint64_t, uint64_t>> quadratic(seed);
        quadratic.run(40, 4, [](uint64_t x, uint64_t y, double c) { return entry(x, y, c); });
    }
    CHECK(all_released());
}

TEST("terms: long logs are compacted and merged in the order of insertion") {
    std::mt19937 random(1);
    for (const uint64_t stride : {uint64_t{1}, uint64_t{1} << 40}) {
        Linear terms;
        Map<uint64_t> map;
        for (int i = 0; i < 300000; ++i) {
            // Like e = e + t: the older view lives until the newer one is made.
            Linear next = terms.share();
            const uint64_t serial = random() % 3000;
            const double coef = static_cast<double>(random()) / 7.0 - 3e8;
            next.add({serial * stride, &references[serial], coef});
            map.add(serial * stride, coef);
            terms = std::move(next);
        }
        CHECK(terms.raw_size() < 16384);
        CHECK(agree(terms, map));
    }
    CHECK(all_released());
}

TEST("terms: long quadratic logs are merged in the order of insertion, whatever their serials") {
    std::mt19937 random(5);
    for (const uint64_t stride : {uint64_t{1}, uint64_t{20}, uint64_t{1} << 40}) {
        for (const unsigned variables : {3U, 60U, 2000U}) {
            Quadratic terms;
            Map<std::pair<uint64_t, uint64_t>> map;
            for (int i = 0; i < 3000; ++i) {
                // Sums of these depend on their order, and some of them cancel.
                const double coef = random() % 4 == 0 ? 1.0 : static_cast<double>(random()) / 7.0;
                QuadraticEntry e = entry(random() % variables, random() % variables,
                                         random() % 8 == 0 ? -1.0 : coef);
                e.serial1 = 9 + e.serial1 * stride;
                e.serial2 = 9 + e.serial2 * stride;
                terms.add(e);
                map.add(key_of(e), e.coef);
            }
            // A zero that comes from scaling stays unless its term is repeated.
            Quadratic zeros = terms.scaled(0.0, 200);
            Map<std::pair<uint64_t, uint64_t>> zero_map = map.scaled(0.0);
            for (uint64_t i = 0; i < 100; ++i) {
                zeros.add(entry(100 - i, 100 - i, 1.0));
                zero_map.add({100 - i, 100 - i}, 1.0);
            }
            CHECK(agree(zeros, zero_map));
            CHECK(agree(terms, map));
        }
    }
    CHECK(all_released());
}

TEST("terms: spans stay valid while other views of the log grow") {
    Linear terms;
    for (uint64_t i = 0; i < 40; ++i) terms.add(entry(i, 1.0));
    const auto before = terms.canonical();
    Linear longer = terms.share();
    for (uint64_t i = 40; i < 1000; ++i) longer.add(entry(i, 1.0));
    for (uint64_t i = 0; i < 40; ++i) CHECK(before[i].serial == i);
    CHECK(before.data() == terms.canonical().data());
}

TEST("terms: temporary results leave no references in what lives on") {
    Linear terms;
    terms.add(entry(1, 1.0));
    for (int length = 1; length < 20; ++length) {
        Linear sum = terms.share();
        for (int i = 0; i < length; ++i) {
            Linear next = sum.share();
            next.add(entry(2, 1.0));
            sum = std::move(next);
        }
        CHECK(references[2] > 0);
        sum.clear();
        CHECK(references[2] == 0);
    }
    // A copy of equal length keeps its own end.
    Linear sum = terms.share();
    sum.add(entry(2, 1.0));
    const Linear twin = sum.share();
    sum.clear();
    CHECK(references[2] == 1 && twin.canonical().size() == 2);
}

TEST("terms: released objects may use and change the expressions of the log") {
    for (const int extra : {1, 3, 9}) {
        Linear base;
        for (uint64_t i = 0; i < 6; ++i) base.add(entry(i, 1.0));
        Linear sum = base.share();
        for (int i = 0; i < extra; ++i) sum.add(entry(100 + i, 1.0));
        Linear made;
        std::function<void()> meddle = [&] {
            on_release = nullptr;
            made = base.share();
            made.add(entry(7, 2.0));
        };
        on_release = &meddle;
        sum.clear();
        on_release = nullptr;
        CHECK(base.canonical().size() == 6 && made.canonical().size() == 7);
        CHECK(made.canonical()[6].serial == 7);
    }
    CHECK(all_released());
}

TEST("serial tables: random inserts and erasures agree with a map") {
    std::mt19937_64 random(3);
    for (const uint64_t stride : {1, 16, 4096}) {
        SerialTable<int> table;
        std::map<uint64_t, int> map;
        for (int step = 0; step < 20000; ++step) {
            const uint64_t serial = random() % 500 * stride;
            if (random() % 5 < 2) {
                table.erase(serial);
                map.erase(serial);
            } else {
                table.set(serial, step);
                map[serial] = step;
            }
            const uint64_t probe = random() % 500 * stride;
            const int* found = table.find(probe);
            const auto it = map.find(probe);
            REQUIRE((found == nullptr) == (it == map.end()));
            if (found != nullptr) CHECK(*found == it->second);
        }
        std::size_t count = 0;
        table.for_each([&](int) { ++count; });
        CHECK(count == map.size());
    }
}
