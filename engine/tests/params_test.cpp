// Controls and attributes, through the C functions and the lists that modeling layers read.
#include "params/params.hpp"

#include <cstring>
#include <set>
#include <string>

#include "dense_problem.hpp"
#include "nslp.h"

namespace {

struct Handles {
    Handles() {
        REQUIRE(NLRAinit(nullptr) == 0 && NSLPinit() == 0);
        REQUIRE(NLRAcreateprob(&prob) == 0 && NSLPcreateprob(&above, prob) == 0);
    }
    ~Handles() {
        NSLPdestroyprob(above);
        NLRAdestroyprob(prob);
    }
    NLRAprob prob = nullptr;
    NSLPprob above = nullptr;
};

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST("params: every listed control and attribute can be read, and found by its name") {
    const Handles h;
    const NLRAcalistentry* list = nullptr;
    int n = 0;
    REQUIRE(NLRAgetcalist_c(h.prob, &list, &n) == 0 && n > 30);
    CHECK(list[n].name == nullptr);
    std::set<std::string> seen;
    for (int i = 0; i < n; ++i) {
        const bool control = (list[i].flags & 32) != 0;
        CHECK(seen.insert((control ? "c:" : "a:") + std::string(list[i].name)).second);
        CHECK(seen.insert((control ? "c#" : "a#") + std::to_string(list[i].id)).second);
        CHECK(contains(list[i].description, "."));
        std::string upper;
        for (const char* c = list[i].name; *c != '\0'; ++c) upper += static_cast<char>(toupper(*c));
        int id = 0, type = 0;
        REQUIRE((control ? NLRAgetcontrolinfo : NLRAgetattribinfo)(h.prob, upper.c_str(), &id,
                                                                   &type) == 0);
        CHECK(id == list[i].id);
        int64_t integer = -1;
        double number = -1.0;
        char text[64];
        // The getter of the type that the flags tell works, those of other types do not.
        const int as_int =
            (control ? NLRAgetintcontrol64 : NLRAgetintattrib64)(h.prob, id, &integer);
        const int as_double = (control ? NLRAgetdblcontrol : NLRAgetdblattrib)(h.prob, id, &number);
        const int as_text = (control ? NLRAgetstringcontrol : NLRAgetstringattrib)(
            h.prob, id, text, sizeof text, nullptr);
        CHECK((as_int == 0) == ((list[i].flags & 1) != 0));
        CHECK((as_double == 0) == ((list[i].flags & 2) != 0));
        CHECK((as_text == 0) == ((list[i].flags & 3) == 0));
        int narrow = 0;
        CHECK(((control ? NLRAgetintcontrol : NLRAgetintattrib)(h.prob, id, &narrow) == 0) ==
              (type == NLRA_TYPE_INT));
    }
    int id = -1, type = -1;
    CHECK(NLRAgetcontrolinfo(h.prob, "no such", &id, &type) == 0 && id == 0 && type == 0);
}

TEST("params: the nonlinear solver's lists agree with its codes and getters") {
    const Handles h;
    std::set<std::string> seen;
    for (const auto get_list : {NSLPgetcalist, NSLPgetKTRcalist}) {
        const NLRAcalistentry* list = nullptr;
        int n = 0;
        REQUIRE(get_list(h.above, &list, &n) == 0 && n > 0 && list[n].name == nullptr);
        for (int i = 0; i < n; ++i) {
            int id = 0, code = 0, integer = -1;
            double number = -1.0;
            REQUIRE(NSLPcontrolcode(h.above, list[i].name, &id, &code) == 0 && id == list[i].id);
            CHECK(seen.insert(list[i].name).second && seen.insert(std::to_string(id)).second);
            const bool control = (code & 16) != 0;
            CHECK(control == ((list[i].flags & 32) != 0) && (code & 3) == (list[i].flags & 3));
            CHECK(((control ? NSLPgetintcontrol : NSLPgetintattrib)(h.above, id, &integer) == 0) ==
                  ((code & 1) != 0));
            CHECK(((control ? NSLPgetdblcontrol : NSLPgetdblattrib)(h.above, id, &number) == 0) ==
                  ((code & 2) != 0));
        }
    }
    int id = -1, code = -1;
    CHECK(NSLPcontrolcode(h.above, "no such", &id, &code) == 0 && id == 0 && code == 0);
    REQUIRE(NSLPcontrolcode(h.above, "nslp_postsolve", &id, &code) == 0 && code == 17);
    CHECK(NSLPsetintcontrol(h.above, id, 2) == NLRA_ERROR_CONTROL);
    CHECK(NSLPsetintcontrol(h.above, id, 1) == 0 && NSLPsetintcontrol(h.above, 12415, 0) == 0);

    NSLPprob other = nullptr;
    REQUIRE(NSLPcreateprob(&other, h.prob) == 0 && NSLPcopycontrols(other, h.above) == 0);
    int value = 0;
    CHECK(NSLPgetintcontrol(other, id, &value) == 0 && value == 1);
    CHECK(NSLPdestroyprob(other) == 0);
}

TEST("params: refused values leave the control as it was and tell the range") {
    const Handles h;
    CHECK(NLRAsetintcontrol(h.prob, nlra::kThreads, 3) == 0);
    CHECK(NLRAsetintcontrol(h.prob, nlra::kThreads, 2000) == NLRA_ERROR_CONTROL);
    CHECK(error_text(h.prob) == "control 'threads': 2000 is not in 0 to 1024");
    CHECK(NLRAsetintcontrol64(h.prob, nlra::kThreads, int64_t{1} << 32) == NLRA_ERROR_CONTROL);
    int threads = 0;
    CHECK(NLRAgetintcontrol(h.prob, nlra::kThreads, &threads) == 0 && threads == 3);

    for (const double bad : {1e-12, 0.5, -1.0, std::nan("")}) {
        CHECK(NLRAsetdblcontrol(h.prob, nlra::kFeasTol, bad) == NLRA_ERROR_CONTROL);
    }
    CHECK(contains(error_text(h.prob), "1e-10 to 0.01"));
    CHECK(NLRAsetdblcontrol(h.prob, nlra::kTimeLimit, HUGE_VAL) == 0);  // infinite as 1e20 is
    double limit = 0.0;
    CHECK(NLRAgetdblcontrol(h.prob, nlra::kTimeLimit, &limit) == 0 && limit == 1e20);

    CHECK(NLRAsetintcontrol(h.prob, nlra::kNodeLimit, 5) == NLRA_ERROR_CONTROL);
    CHECK(contains(error_text(h.prob), "64 bits"));
    CHECK(NLRAsetintcontrol64(h.prob, nlra::kNodeLimit, INT64_MAX) == 0);
    CHECK(NLRAsetintcontrol64(h.prob, nlra::kNodeLimit, -1) == NLRA_ERROR_CONTROL);
    CHECK(contains(error_text(h.prob), "9223372036854775807"));
    CHECK(NLRAsetdblcontrol(h.prob, nlra::kThreads, 1.0) == NLRA_ERROR_CONTROL);
    CHECK(contains(error_text(h.prob), "'threads' is an integer control"));
    CHECK(NLRAsetstrcontrol(h.prob, nlra::kThreads, "1") == NLRA_ERROR_CONTROL);
    CHECK(NLRAsetintcontrol(h.prob, 4, 1) == NLRA_ERROR_CONTROL);
    CHECK(error_text(h.prob) == "there is no control with the identifier 4");
}

TEST("params: copying controls copies values only") {
    const Handles a, b;
    CHECK(NLRAsetintcontrol(a.prob, NLRA_LOGLEVEL, 0) == 0);
    CHECK(NLRAsetprobname(a.prob, "a") == 0 && NLRAcopycontrols(b.prob, a.prob) == 0);
    int level = -1;
    char name[8] = "?";
    CHECK(NLRAgetintcontrol(b.prob, NLRA_LOGLEVEL, &level) == 0 && level == 0);
    CHECK(NLRAgetprobname(b.prob, name, sizeof name, nullptr) == 0 && name[0] == '\0');
    CHECK(NLRAcopycontrols(b.prob, nullptr) == NLRA_ERROR_ARGUMENT);
}
