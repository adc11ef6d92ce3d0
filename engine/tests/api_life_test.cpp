// Handles, start and stop, threads, messages, copies.
#include <atomic>
#include <thread>

#include "api/problem.hpp"
#include "dense_problem.hpp"
#include "nslp.h"

namespace {

struct Problem {
    Problem() { REQUIRE(NLRAinit(nullptr) == 0 && NLRAcreateprob(&prob) == 0); }
    ~Problem() { NLRAdestroyprob(prob); }
    operator NLRAprob() const { return prob; }
    NLRAprob prob = nullptr;
};

std::string global_error() {
    char text[512] = "?";
    REQUIRE(NLRA_ge_getlasterror(nullptr, text, sizeof text, nullptr) == 0);
    return text;
}

// A knapsack that is solved at once, and has something to say about it.
void fill(NLRAprob prob) {
    const double obj[] = {-5.0, -4.0, -3.0}, weights[] = {2.0, 3.0, 1.0}, rhs = 5.0;
    const int64_t start = 0;
    const int cols[] = {0, 1, 2};
    REQUIRE(NLRAaddcols64(prob, 3, 0, obj, nullptr, nullptr, nullptr, nullptr, nullptr) == 0);
    REQUIRE(NLRAaddrows64(prob, 1, 3, "L", &rhs, nullptr, &start, cols, weights) == 0);
    REQUIRE(NLRAchgcoltype(prob, 3, cols, "BBB") == 0);
}

}  // namespace

TEST("api: null and dead handles are refused") {
    REQUIRE(NLRAinit(nullptr) == 0);
    CHECK(NLRAdelrows(nullptr, 0, nullptr) == NLRA_ERROR_ARGUMENT);
    CHECK(global_error() == "NLRAdelrows: the problem handle is null");
    CHECK(NLRAcreateprob(nullptr) == NLRA_ERROR_ARGUMENT);
    CHECK(NLRAgetlasterror(nullptr, nullptr, nullptr, 0, nullptr) == NLRA_ERROR_ARGUMENT);
    CHECK(NSLPgetcalist(nullptr, nullptr, nullptr) == NLRA_ERROR_ARGUMENT);
    NLRAprob prob = nullptr;
    const char* name = nullptr;
    REQUIRE(NLRAcreateprob(&prob) == 0 && global_error().empty());
    CHECK(NLRAgetobjecttypename(prob, &name) == 0 && std::string(name) == "NLRAprob");
    CHECK(NLRAgetobjecttypename(&name, &name) == 0 && std::string(name) == "unknown");
    CHECK(NLRAdestroyprob(prob) == 0);
    CHECK(NLRAgetobjecttypename(prob, &name) == 0 && std::string(name) == "unknown");
    CHECK(NLRAdestroyprob(prob) == NLRA_ERROR_ARGUMENT && NLRAdestroyprob(nullptr) != 0);
}

TEST("api: handles outlive the stop, and work again after the next start") {
    REQUIRE(NLRAinit(nullptr) == 0 && NLRAinit(nullptr) == 0 && NSLPinit() == 0);
    NLRAprob prob = nullptr, doomed = nullptr;
    NSLPprob above = nullptr, left = nullptr;
    REQUIRE(NLRAcreateprob(&prob) == 0 && NLRAcreateprob(&doomed) == 0);
    REQUIRE(NSLPcreateprob(&above, prob) == 0 && NSLPcreateprob(&left, doomed) == 0);
    fill(prob);
    const DenseProblem before = read_problem(prob);

    CHECK(NLRAfree() == 0 && NLRAfree() == 0);
    int value = 0;
    CHECK(NLRAgetintattrib(prob, NLRA_ROWS, &value) == NLRA_ERROR_CLOSED);
    CHECK(error_text(prob) == "NLRAgetintattrib: the library has been stopped");
    CHECK(NSLPgetintattrib(above, NSLP_ROWS, &value) == NLRA_ERROR_CLOSED);
    CHECK(error_text(prob).empty());  // of the call before, and this one's is its own handle's
    NLRAprob late = nullptr;
    CHECK(NLRAcreateprob(&late) == NLRA_ERROR_NOTSTARTED && NSLPinit() == NLRA_ERROR_NOTSTARTED);
    CHECK(NLRAdestroyprob(doomed) == 0);  // with a nonlinear problem still on it

    REQUIRE(NLRAinit(nullptr) == 0);
    CHECK(read_problem(prob) == before);
    NSLPprob none = nullptr;
    CHECK(NSLPcreateprob(&none, prob) == NLRA_ERROR_NOTSTARTED);
    REQUIRE(NSLPinit() == 0);
    CHECK(NSLPgetintattrib(above, NSLP_ROWS, &value) == 0 && value == 1);
    CHECK(NSLPgetintattrib(left, NSLP_ROWS, &value) == NLRA_ERROR_STATE);
    char text[128];
    CHECK(NSLPgetlasterror(left, nullptr, text, sizeof text, nullptr) == 0);
    CHECK(std::string(text).find("has been destroyed") != std::string::npos);
    CHECK(NSLPdestroyprob(left) == 0 && NSLPdestroyprob(above) == 0 && NLRAdestroyprob(prob) == 0);
}

TEST("api: texts are cut to the buffer, with room for the NUL, and tell their size") {
    const Problem p;
    REQUIRE(NLRAsetprobname(p, "abcdef") == 0);
    char name[8] = "???????";
    int needed = 0;
    CHECK(NLRAgetprobname(p, name, 4, &needed) == 0 && needed == 7);
    CHECK(std::string(name) == "abc" && name[4] == '?');
    CHECK(NLRAgetprobname(p, nullptr, 0, &needed) == 0 && needed == 7);
    CHECK(int_attribute(p, named_attribute(p, "namelength")) == 6);
    char version[32];
    CHECK(NLRAgetversion(version) == 0 && version[0] != '\0');
}

TEST("api: each thread has its own last error") {
    const Problem p;
    CHECK(NLRAchgcoef(p, 5, 0, 1.0) != 0);
    std::thread([&] {
        CHECK(error_text(p).empty());
        CHECK(NLRAdelrows(p, -1, nullptr) != 0 && NLRAdelrows(p, 0, nullptr) == 0);
        CHECK(error_text(p).empty());
    }).join();
    CHECK(error_text(p).find("row = 5") != std::string::npos);
    CHECK(NLRAdelrows(p, 0, nullptr) == 0 && error_text(p).empty());
}

TEST("api: copies are independent and keep their own controls and callbacks") {
    const Problem a, b;
    fill(a);
    REQUIRE(NLRAsetprobname(a, "a") == 0 && NLRAsetintcontrol(b, NLRA_LOGLEVEL, 0) == 0);
    REQUIRE(NLRAsetintcontrol(a, NLRA_LOGLEVEL, 0) == 0 && NLRAmipoptimize(a, nullptr) == 0);
    REQUIRE(NLRAcopyprob(b, a, "") == 0);
    CHECK(read_problem(b) == read_problem(a));
    double x[3] = {};
    CHECK(NLRAgetmipsol(b, x, nullptr) == 0 &&
          int_attribute(b, NLRA_MIPSTATUS) == NLRA_MIP_OPTIMAL);
    CHECK(x[0] == 1.0 && x[1] == 1.0 && x[2] == 0.0);
    const int zero = 0;
    CHECK(NLRAdelcols(b, 1, &zero) == 0 && NLRAchgcoef(a, 0, 2, 0.5) == 0);
    CHECK(int_attribute(a, NLRA_COLS) == 3 && int_attribute(b, NLRA_COLS) == 2);
    char name[4] = "?";
    CHECK(NLRAcopyprob(b, b, "new") == 0 && NLRAgetprobname(b, name, 4, nullptr) == 0);
    CHECK(std::string(name) == "new");
    CHECK(NLRAcopyprob(b, nullptr, "") == NLRA_ERROR_ARGUMENT);
    // Solved from a copy's own state, not from that of its source.
    CHECK(NLRAmipoptimize(b, nullptr) == 0 && NLRAgetmipsol(b, x, nullptr) == 0);
    CHECK(x[0] == 1.0 && x[1] == 1.0);
}

namespace {

struct Listener {
    NLRAprob prob;
    std::string log;
    int lines = 0;
};

void listen(NLRAprob prob, void* data, const char* text, int length, int) {
    auto* const listener = static_cast<Listener*>(data);
    CHECK(prob == listener->prob && std::string(text).size() == static_cast<size_t>(length));
    ++listener->lines;
}

// Called before the one above; tries everything that must be refused meanwhile, then leaves.
void meddle(NLRAprob prob, void* data, const char*, int, int) {
    auto* const listener = static_cast<Listener*>(data);
    CHECK(listener->lines == 0);
    CHECK(NLRAchgcoef(prob, 0, 0, 1.0) == NLRA_ERROR_BUSY);
    CHECK(error_text(prob) == "NLRAchgcoef: the problem is being solved");
    CHECK(NLRAmipoptimize(prob, nullptr) == NLRA_ERROR_BUSY);
    CHECK(NLRAdestroyprob(prob) == NLRA_ERROR_BUSY);
    CHECK(NLRAhold(prob) == NLRA_ERROR_BUSY && NLRArelease(prob) == NLRA_ERROR_BUSY);
    CHECK(NLRAsetintcontrol(prob, NLRA_LOGLEVEL, 0) == NLRA_ERROR_BUSY);
    CHECK(read_problem(prob).ncols() == 3);
    std::thread([&] {
        double x[3];
        CHECK(NLRAgetmipsol(prob, x, nullptr) == NLRA_ERROR_BUSY);
        CHECK(NLRAaddcbmessage(prob, listen, listener, 0) == NLRA_ERROR_BUSY);
        CHECK(int_attribute(prob, NLRA_COLS) == 3);
    }).join();
    CHECK(NLRAremovecbmessage(prob, meddle, nullptr) == 0);
    listener->log += "m";
}

int listen_globally(void* object, void* data, void*, const char*, int, int) {
    const char* name = nullptr;
    CHECK(NLRAgetobjecttypename(object, &name) == 0 && std::string(name) == "NLRAprob");
    ++*static_cast<int*>(data);
    return 0;
}

}  // namespace

TEST("api: messages reach callbacks by priority, then handlers, during a busy solve") {
    const Problem p;
    fill(p);
    Listener listener{p, "", 0};
    int first = 0, second = 0, gone = 0;
    REQUIRE(NLRAaddcbmessage(p, listen, &listener, 1) == 0);
    REQUIRE(NLRAaddcbmessage(p, listen, &listener, 2) == 0);  // the same one: moved
    REQUIRE(NLRAaddcbmessage(p, meddle, &listener, 5) == 0);
    for (int* count : {&first, &second, &gone, &gone}) {
        REQUIRE(NLRA_ge_addcbmsghandler(listen_globally, count, 1) == 0);
    }
    REQUIRE(NLRA_ge_removecbmsghandler(listen_globally, &gone) == 0);
    CHECK(NLRAmipoptimize(p, nullptr) == 0);
    CHECK(listener.log == "m" && listener.lines > 0 && gone == 0);
    CHECK(first == listener.lines && second == first);
    CHECK(NLRA_ge_removecbmsghandler(nullptr, nullptr) == 0);
    CHECK(NLRAmipoptimize(p, nullptr) == 0 && first == second && listener.lines > first);
    CHECK(NLRAchgcoef(p, 0, 0, 1.0) == 0);  // free again

    // What holds for a call holds for all calls from a hold to its release.
    CHECK(NLRAhold(p) == 0 && NLRAhold(p) == NLRA_ERROR_BUSY);
    CHECK(NLRAaddcbmessage(p, meddle, &listener, 5) == 0);
    listener.lines = 0;
    CHECK(NLRAmipoptimize(p, nullptr) == 0 && listener.log == "mm");
    CHECK(NLRAdestroyprob(p) == NLRA_ERROR_BUSY);
    const auto others = [&](int expected) {
        std::thread([&] {
            CHECK(NLRAchgcoef(p, 0, 0, 1.0) == expected);
            CHECK(NLRAmipoptimize(p, nullptr) == expected);
            CHECK(NLRAgetmipsol(p, nullptr, nullptr) == expected);
            CHECK(NLRArelease(p) == (expected != 0 ? expected : NLRA_ERROR_STATE));
        }).join();
    };
    others(NLRA_ERROR_BUSY);
    CHECK(NLRArelease(p) == 0 && NLRArelease(p) == NLRA_ERROR_STATE);
    others(0);
}

TEST("api: stopping the library ends a solve under way, whose callbacks can still be removed") {
    const Problem p;
    fill(p);
    const auto stop = [](NLRAprob, void*, const char*, int, int) { NLRAfree(), NLRAinit(nullptr); };
    const auto poll = [](NLRAprob, void* data) { return ++*static_cast<int*>(data), 0; };
    int polls = 0;
    REQUIRE(NLRAaddcbmessage(p, stop, nullptr, 0) == 0);
    REQUIRE(NLRAaddcbchecktime(p, poll, &polls, 0) == 0);
    CHECK(NLRAmipoptimize(p, nullptr) == NLRA_ERROR_CLOSED);
    CHECK(error_text(p) ==
          "NLRAmipoptimize: the library was stopped while the problem was being "
          "solved");
    CHECK(NLRAfree() == 0 && NLRAremovecbmessage(p, stop, nullptr) == 0);
    CHECK(NLRAremovecbchecktime(p, poll, nullptr) == 0);
    CHECK(NLRAinit(nullptr) == 0);
    polls = 0;
    CHECK(NLRAmipoptimize(p, nullptr) == 0 && polls == 0);
}

TEST("api: starting solutions follow the columns that are deleted") {
    const Problem p;
    fill(p);
    const double values[] = {0.0, 1.0, 1.0}, all[] = {1.0, 1.0, 0.0};
    const int cols[] = {2, 0, 1}, middle = 1;
    for (int i = 0; i < 1000; ++i) REQUIRE(NLRAaddmipsol(p, 3, all, nullptr, nullptr) == 0);
    CHECK(p.prob->mip_starts.size() <= 100);  // never used: the oldest ones go
    REQUIRE(NLRAaddmipsol(p, 3, values, cols, "mine") == 0);
    REQUIRE(NLRAaddmipsol(p, 3, all, nullptr, nullptr) == 0);
    REQUIRE(NLRAdelcols(p, 1, &middle) == 0);
    REQUIRE(NLRAsetintcontrol(p, NLRA_LOGLEVEL, 0) == 0);
    double x[2] = {};
    CHECK(NLRAmipoptimize(p, nullptr) == 0 && NLRAgetmipsol(p, x, nullptr) == 0);
    CHECK(x[0] == 1.0 && x[1] == 1.0);
}

TEST("api: problems in different threads do not disturb each other") {
    std::atomic<int> wrong{0};
    const auto work = [&](unsigned seed) {
        for (int round = 0; round < 200; ++round) {
            NLRAprob prob = nullptr;
            if (NLRAcreateprob(&prob) != 0) ++wrong;
            const double obj = seed;
            for (int j = 0; j < 20; ++j) {
                if (NLRAaddcols64(prob, 1, 0, &obj, nullptr, nullptr, nullptr, nullptr, nullptr)) {
                    ++wrong;
                }
            }
            double back[20] = {};
            if (NLRAgetobj(prob, back, 0, 19) != 0 || back[19] != obj) ++wrong;
            if (NLRAchgcoef(prob, 0, 0, 1.0) != NLRA_ERROR_ARGUMENT) ++wrong;
            if (NLRAdestroyprob(prob) != 0) ++wrong;
        }
    };
    REQUIRE(NLRAinit(nullptr) == 0);
    std::thread one(work, 1), two(work, 2);
    one.join();
    two.join();
    CHECK(wrong == 0);
}
