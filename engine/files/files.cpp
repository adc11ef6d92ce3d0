#include "files/files.hpp"

#include <sys/stat.h>

#include <string_view>

#include "files/lp.hpp"
#include "files/mps.hpp"
#include "files/nonlinear.hpp"
#include "files/output.hpp"
#include "files/source.hpp"
#include "files/text.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

enum class Format { kUnknown, kMps, kLp, kNonlinear };

struct Ending {
    std::string_view text;
    Format format;
};
constexpr Ending kEndings[] = {
    {".mps", Format::kMps}, {".lp", Format::kLp}, {".nlm", Format::kNonlinear}};

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

Choice by_name(std::string_view name) {
    Choice choice;
    choice.compressed = cut_ending(name, ".gz");
    for (const Ending& ending : kEndings) {
        if (!cut_ending(name, ending.text)) continue;
        choice.format = ending.format;
        break;
    }
    return choice;
}

// The options that stand for a format exclude each other.
void choose_format(Choice& choice, char& chosen, char option, Format format) {
    if (chosen != '\0' && chosen != option) {
        fail(
            NLRA_ERROR_ARGUMENT,
            "the options g (nonlinear models), l (LP format) and x (fixed MPS) exclude each other");
    }
    chosen = option;
    choice.format = format;
}

Choice choose(const std::string& filename, const std::string& options) {
    if (filename.empty()) fail(NLRA_ERROR_ARGUMENT, "the file name is empty");
    Choice choice = by_name(filename);
    char chosen = '\0';
    for (char option : options) {
        switch (option) {
            case 'g':
                choose_format(choice, chosen, option, Format::kNonlinear);
                break;
            case 'l':
                choose_format(choice, chosen, option, Format::kLp);
                break;
            case 'x':
                choose_format(choice, chosen, option, Format::kMps);
                choice.fixed = true;
                break;
            case 'z':
                choice.compressed = true;
                break;
            default:
                fail(NLRA_ERROR_ARGUMENT, "unknown option '%c' for files; known are g, l, x and z",
                     option);
        }
    }
    return choice;
}

bool is_file(const std::string& name) {
    struct stat status;
    return ::stat(name.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

// A name without a known ending may stand for one with it.
std::string find_file(const std::string& filename, const Choice& choice) {
    const Choice named = by_name(filename);
    if (named.format != Format::kUnknown || named.compressed || is_file(filename)) return filename;
    for (const char* compressed : {"", ".gz"}) {
        for (const Ending& ending : kEndings) {
            if (choice.format != Format::kUnknown && choice.format != ending.format) continue;
            std::string candidate = filename + std::string(ending.text) + compressed;
            if (is_file(candidate)) return candidate;
        }
    }
    return filename;
}

// An LP file begins with its objective, an MPS file with some section.
Format sniff(const Source& source) {
    if (is_nonlinear_file(source)) return Format::kNonlinear;
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
    Format format =
        choice.format == Format::kUnknown ? by_name(source.filename()).format : choice.format;
    // Nonlinear models may be under any name: no other format can hold them.
    if (format == Format::kUnknown || is_nonlinear_file(source)) format = sniff(source);
    if (format == Format::kNonlinear) {
        read_nonlinear(model, source);
    } else if (format == Format::kLp) {
        read_lp(model, source);
    } else {
        read_mps(model, source, choice.fixed);
    }
    for (Names* names : {&model.colnames, &model.rownames, &model.setnames}) {
        names->number_nameless();
    }
}

void write_model(const Model& model, const std::string& filename, const std::string& options) {
    const Choice choice = choose(filename, options);
    if (!model.formulas.empty() && choice.format != Format::kNonlinear) {
        fail(NLRA_ERROR_UNSUPPORTED, "MPS and LP files cannot hold nonlinear formulas");
    }
    FileOutput output(filename, choice.compressed);
    if (choice.format == Format::kNonlinear) {
        write_nonlinear(model, output);
    } else if (choice.format == Format::kLp) {
        write_lp(model, output);
    } else {
        write_mps(model, output, choice.fixed);
    }
    output.commit();
}

}  // namespace nlra
