#include "files_support.hpp"

using namespace files_test;

namespace {

void check_round_trips(Format format, unsigned first_seed, unsigned count) {
    for (unsigned seed = first_seed; seed < first_seed + count; ++seed) {
        const Model model = RandomModel(seed, format).make();
        const std::string text = to_text(model, format);
        std::string trouble;
        try {
            trouble = difference(model, from_text(text, format));
        } catch (const Error& error) {
            trouble = error.text;
        }
        if (!CHECK(trouble.empty())) {
            std::fprintf(stderr, "seed %u: %s\n%s\n", seed, trouble.c_str(), text.c_str());
            return;
        }
    }
}

}  // namespace

TEST("files: random models survive free MPS unchanged") {
    check_round_trips(Format::kMps, 1, 3000);
}
TEST("files: random models survive fixed MPS unchanged") {
    check_round_trips(Format::kFixedMps, 10001, 3000);
}
TEST("files: random models survive LP format unchanged") {
    check_round_trips(Format::kLp, 20001, 3000);
}
TEST("files: random nonlinear models survive their format unchanged") {
    check_round_trips(Format::kNonlinear, 30001, 5000);
}
