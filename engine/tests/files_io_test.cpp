#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "files/gzip.hpp"
#include "files_support.hpp"
#include "nslp.h"

using namespace files_test;

namespace {

// A folder for one test, removed with all that is in it.
class Folder {
  public:
    Folder() {
        path_ = std::filesystem::temp_directory_path().string() + "/nalora_files.XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) throw check::Abort{};
    }
    ~Folder() {
        for (const std::string& name : entries()) ::remove((path_ + '/' + name).c_str());
        ::rmdir(path_.c_str());
    }
    std::string operator/(const char* name) const { return path_ + '/' + name; }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        DIR* directory = ::opendir(path_.c_str());
        while (const dirent* entry = ::readdir(directory)) {
            if (entry->d_name[0] != '.') names.push_back(entry->d_name);
        }
        ::closedir(directory);
        return names;
    }

  private:
    std::string path_;
};

std::string content(const std::string& filename) {
    std::ifstream file(filename, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void store(const std::string& filename, const std::string& text) {
    std::ofstream(filename, std::ios::binary) << text;
}

Model sample() { return RandomModel(5, Format::kMps).make(); }

Model load(const std::string& filename, const std::string& options = "") {
    Model model;
    read_model(model, filename, options);
    return model;
}

template <class Action>
std::string error_of_action(Action&& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.text;
    }
    return "";
}

}  // namespace

TEST("files: endings, options and content choose the format") {
    const Folder folder;
    const Model model = sample();
    REQUIRE(model.cols() > 0);
    const char* names[] = {"a.mps", "a.lp", "a.mps.gz", "a.LP.GZ", "a", "a.txt"};
    for (const char* name : names) {
        write_model(model, folder / name, "");
        CHECK(difference(model, load(folder / name)).empty());
    }
    CHECK(content(folder / "a").rfind("NAME", 0) == 0);
    CHECK(has(content(folder / "a.lp"), "Subject To"));
    CHECK(content(folder / "a.LP.GZ").rfind("\x1f\x8b", 0) == 0);
    write_model(model, folder / "b", "lz");
    CHECK(content(folder / "b").rfind("\x1f\x8b", 0) == 0);
    CHECK(difference(model, load(folder / "b")).empty());
    // An option counts more than the ending; compressed content is known under any name.
    write_model(model, folder / "c.mps", "l");
    CHECK(difference(model, load(folder / "c.mps", "l")).empty());
    store(folder / "d.lp", content(folder / "a.LP.GZ"));
    CHECK(difference(model, load(folder / "d.lp")).empty());
    store(folder / "e.mps.gz", "\xef\xbb\xbf" + content(folder / "a.mps"));
    CHECK(difference(model, load(folder / "e.mps.gz")).empty());
    // A name without an ending stands for those with one.
    write_model(model, folder / "f.lp.gz", "");
    CHECK(difference(model, load(folder / "f")).empty());
    CHECK(has(error_of_action([&] { load(folder / "f", "q"); }), "unknown option 'q'"));
    CHECK(has(error_of_action([&] { write_model(model, folder / "f", "lx"); }), "exclude"));
    CHECK(has(error_of_action([&] { load(""); }), "empty"));
}

TEST("files: what cannot be read") {
    const Folder folder;
    const auto expect = [&](const std::string& filename, const char* part) {
        const std::string error = error_of_action([&] { load(filename); });
        if (!CHECK(has(error, filename) && has(error, part))) {
            std::fprintf(stderr, "got '%s'\n", error.c_str());
        }
    };
    expect(folder / "missing.mps", "No such file");
    ::mkdir((folder / "folder").c_str(), 0777);
    expect(folder / "folder", "is a directory");
    expect("/dev/null", "not a regular file");
    store(folder / "empty.mps", "");
    expect(folder / "empty.mps", ":1: ");

    // Large enough for the compressed file to have a middle.
    Model model;
    const std::vector<int64_t> start(2001, 0);
    std::vector<double> obj(2000);
    for (size_t i = 0; i < obj.size(); ++i) obj[i] = static_cast<double>(i * i % 1009) / 7.0;
    model.add_cols(2000, 0, obj.data(), start.data(), nullptr, nullptr, nullptr, nullptr);
    write_model(model, folder / "a.mps.gz", "");
    const std::string whole = content(folder / "a.mps.gz");
    for (const size_t size : {whole.size() - 1, whole.size() / 2, size_t{12}}) {
        store(folder / "cut.mps.gz", whole.substr(0, size));
        expect(folder / "cut.mps.gz", "cannot decompress");
    }
    // Blanks, which take a thousandth of their size.
    GzipFile bomb(::open((folder / "bomb.lp.gz").c_str(), O_WRONLY | O_CREAT, 0666), true, "bomb");
    const std::string blanks(1 << 20, ' ');
    for (int i = 0; i < 40; ++i) bomb.write(blanks.data(), blanks.size());
    bomb.close();
    expect(folder / "bomb.lp.gz", "unpacks to more than 100 times as much");

    std::string damaged = whole;
    damaged[whole.size() / 2] ^= 0x55;
    store(folder / "bad.mps.gz", damaged);
    expect(folder / "bad.mps.gz", "bad.mps.gz:");
}

TEST("files: a failed write changes nothing") {
    const Folder folder;
    Model model = sample();
    write_model(model, folder / "a.mps", "");
    const std::string before = content(folder / "a.mps");
    REQUIRE(model.rows() > 0);
    model.rownames.set(0, "with blank");
    for (const char* options : {"", "z", "l"}) {
        CHECK(has(error_of_action([&] { write_model(model, folder / "a.mps", options); }),
                  "'with blank'"));
    }
    CHECK(content(folder / "a.mps") == before);
    CHECK(folder.entries().size() == 1);
    const Model good = sample();
    const auto expect = [&](const std::string& filename, const char* options, const char* part) {
        const std::string error = error_of_action([&] { write_model(good, filename, options); });
        if (!CHECK(has(error, filename) && has(error, part))) {
            std::fprintf(stderr, "got '%s'\n", error.c_str());
        }
    };
    expect(folder / "none/a.mps", "", "No such file");
    expect("/dev/full", "", "No space left");
    expect("/dev/full", "z", "No space left");
    ::mkdir((folder / "folder").c_str(), 0777);
    expect(folder / "folder", "", "is a directory");
}

TEST("files: replacing a file keeps links and rights") {
    const Folder folder;
    store(folder / "real", "old");
    ::chmod((folder / "real").c_str(), 0640);
    REQUIRE(::symlink("real", (folder / "link.lp").c_str()) == 0);
    const Model model = sample();
    write_model(model, folder / "link.lp", "");
    struct stat status;
    CHECK(::lstat((folder / "link.lp").c_str(), &status) == 0 && S_ISLNK(status.st_mode));
    CHECK(::stat((folder / "real").c_str(), &status) == 0 && (status.st_mode & 0777) == 0640);
    CHECK(difference(model, load(folder / "real")).empty());
    CHECK(folder.entries().size() == 2);
}

TEST("files: through the C functions, where a failed read leaves the problem as it was") {
    const Folder folder;
    store(folder / "bad.mps", "NAME\nROWS\n N o\n L o\n");
    const std::string p0033 = NALORA_TEST_DATA "/p0033.mps";
    REQUIRE(NLRAinit(nullptr) == 0);
    NLRAprob prob = nullptr;
    REQUIRE(NLRAcreateprob(&prob) == 0);
    CHECK(NLRAreadprob(prob, p0033.c_str(), nullptr) == 0);
    CHECK(NLRAreadprob(prob, (folder / "bad.mps").c_str(), "") == NLRA_ERROR_FILE);
    char text[512];
    int code = 0;
    int bytes = 0;
    CHECK(NLRAgetlasterror(prob, &code, text, sizeof(text), &bytes) == 0);
    CHECK(has(text, "bad.mps:4: row 'o' occurs twice"));
    int cols = 0;
    CHECK(NLRAgetintattrib(prob, NLRA_COLS, &cols) == 0 && cols == 33);
    CHECK(NLRAwriteprob(prob, (folder / "copy.lp.gz").c_str(), "") == 0);
    CHECK(NLRAreadprob(prob, (folder / "copy").c_str(), "") == 0);
    CHECK(NLRAmipoptimize(prob, "") == 0);
    double objective = 0.0;
    CHECK(NLRAgetdblattrib(prob, NLRA_MIPOBJVAL, &objective) == 0);
    CHECK_NEAR(objective, 3089.0, 1e-6);
    CHECK(NLRAdestroyprob(prob) == 0);
    CHECK(NLRAfree() == 0);
}

TEST("files: formulas are read by the nonlinear solver only, and written in their own format") {
    const Folder folder;
    store(folder / "m.nlm", "nalora model 1\ncolumn x C 0 1\nminimize\n  formula exp(x)\nend\n");
    store(folder / "bad.nlm", "nalora model 1\ncolumn x C 0 1\nminimize\n  formula exp(y)\nend\n");
    REQUIRE(NLRAinit(nullptr) == 0 && NSLPinit() == 0);
    NLRAprob prob = nullptr;
    NSLPprob nonlinear = nullptr;
    REQUIRE(NLRAcreateprob(&prob) == 0 && NSLPcreateprob(&nonlinear, prob) == 0);
    const auto has_formula = [&] {
        int value = -1;
        CHECK(NSLPgetintattrib(nonlinear, NSLP_NONLINEAROBJ, &value) == 0);
        return value;
    };
    const std::string good = folder / "m.nlm";
    CHECK(NLRAreadprob(prob, good.c_str(), "") == NLRA_ERROR_UNSUPPORTED);
    int cols = -1;
    CHECK(NLRAgetintattrib(prob, NLRA_COLS, &cols) == 0 && cols == 0 && has_formula() == 0);
    CHECK(NSLPreadprob(nonlinear, (folder / "m").c_str(), nullptr) == 0);
    CHECK(NLRAreadprob(prob, (folder / "missing").c_str(), "") == NLRA_ERROR_FILE);
    CHECK(NSLPreadprob(nonlinear, (folder / "bad").c_str(), "") == NLRA_ERROR_FILE);
    char text[512] = {};
    int code = 0;
    int bytes = 0;
    CHECK(NSLPgetlasterror(nonlinear, &code, text, sizeof(text), &bytes) == 0);
    CHECK(has(text, "bad.nlm:4: unknown column 'y'"));
    CHECK(NLRAgetlasterror(prob, &code, text, sizeof(text), &bytes) == 0 && code == 0);
    CHECK(has_formula() == 1);
    CHECK(NSLPwriteprob(nonlinear, nullptr, "") == NLRA_ERROR_ARGUMENT);
    CHECK(NLRAwriteprob(prob, (folder / "m.lp").c_str(), "") == NLRA_ERROR_UNSUPPORTED);
    CHECK(NSLPwriteprob(nonlinear, (folder / "copy").c_str(), "") == 0);
    CHECK(content(folder / "copy") == content(good));
    CHECK(folder.entries().size() == 3);
    CHECK(NSLPdestroyprob(nonlinear) == 0 && NLRAdestroyprob(prob) == 0);
    CHECK(NSLPfree() == 0 && NLRAfree() == 0);
}
