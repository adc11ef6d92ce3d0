#include "files/files.hpp"

#include <sys/stat.h>

#include <string_view>

#include "files/lp.hpp"
#include "files/mps.hpp"
#include "files/output.hpp"
#include "files/source.hpp"
#include "files/text.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

enum class Format { kUnknown, kMps, kLp };

struct Choice {
    Format format = Format::kUnknown;
    bool compressed = false;
    bool fixed = false;
};

bool cut_ending(std::string_view& name, std::string_view ending) {
    if (name.size() <= ending.size()) return false;
    if (!equal_nocase(name.substr(name.size() - ending.size()), ending)) return false;
    name.remove_suffix(ending.size());
    return true;
}

Choice choose(const std::string& filename, const std::string& options) {
    if (filename.empty()) fail(NLRA_ERROR_ARGUMENT, "the file name is empty");
    Choice choice;
    std::string_view name = filename;
    choice.compressed = cut_ending(name, ".gz");
    if (cut_ending(name, ".mps")) choice.format = Format::kMps;
    if (cut_ending(name, ".lp")) choice.format = Format::kLp;
    bool lp = false;
    for (char option : options) {
        switch (option) {
            case 'l':
                lp = true;
                break;
            case 'z':
                choice.compressed = true;
                break;
            case 'x':
                choice.fixed = true;
                break;
            default:
                fail(NLRA_ERROR_ARGUMENT, "unknown option '%c' for files; known are l, x and z",
                     option);
        }
    }
    if (lp && choice.fixed) {
        fail(NLRA_ERROR_ARGUMENT, "the options l (LP format) and x (fixed MPS) exclude each other");
    }
    if (lp) choice.format = Format::kLp;
    if (choice.fixed) choice.format = Format::kMps;
    return choice;
}

bool is_file(const std::string& name) {
    struct stat status;
    return ::stat(name.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

// A name without a known ending may stand for one with it.
std::string find_file(const std::string& filename, const Choice& choice) {
    std::string_view name = filename;
    const bool has_ending =
        cut_ending(name, ".gz") || cut_ending(name, ".mps") || cut_ending(name, ".lp");
    if (has_ending || is_file(filename)) return filename;
    for (const char* ending : {".mps", ".lp", ".mps.gz", ".lp.gz"}) {
        const bool lp = ending[1] == 'l';
        if (choice.format != Format::kUnknown && lp != (choice.format == Format::kLp)) continue;
        if (is_file(filename + ending)) return filename + ending;
    }
    return filename;
}

// An LP file begins with its objective, an MPS file with some section.
Format sniff(const Source& source) {
    const char* at = source.begin();
    while (at < source.end()) {
        if (is_blank(*at)) {
            ++at;
            continue;
        }
        if (*at != '*' && *at != '\\') break;
        if (*at == '\\') return Format::kLp;
        while (*at != '\n') ++at;
    }
    const char* end = at;
    while (!is_blank(*end)) ++end;
    const std::string_view word(at, end - at);
    for (const char* start :
         {"minimize", "minimise", "minimum", "min", "maximize", "maximise", "maximum", "max"}) {
        if (equal_nocase(word, start)) return Format::kLp;
    }
    return Format::kMps;
}

}  // namespace

void read_model(Model& model, const std::string& filename, const std::string& options) {
    const Choice choice = choose(filename, options);
    const Source source = Source::load(find_file(filename, choice));
    const Format format =
        choice.format == Format::kUnknown ? choose(source.filename(), "").format : choice.format;
    if ((format == Format::kUnknown ? sniff(source) : format) == Format::kLp) {
        read_lp(model, source);
    } else {
        read_mps(model, source, choice.fixed);
    }
}

void write_model(const Model& model, const std::string& filename, const std::string& options) {
    const Choice choice = choose(filename, options);
    if (!model.formulas.empty()) {
        fail(NLRA_ERROR_UNSUPPORTED, "MPS and LP files cannot hold nonlinear formulas");
    }
    FileOutput output(filename, choice.compressed);
    if (choice.format == Format::kLp) {
        write_lp(model, output);
    } else {
        write_mps(model, output, choice.fixed);
    }
    output.commit();
}

}  // namespace nlra
