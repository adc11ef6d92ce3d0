#include "files/lp_tokens.hpp"

#include <cstring>

#include "files/number.hpp"
#include "files/text.hpp"

namespace nlra {

namespace {

struct SectionName {
    std::string_view first;
    std::string_view second;  // empty for names of one word
    LpSection section;
};

constexpr SectionName kSections[] = {{"minimize", "", LpSection::kMinimize},
                                     {"minimise", "", LpSection::kMinimize},
                                     {"minimum", "", LpSection::kMinimize},
                                     {"min", "", LpSection::kMinimize},
                                     {"maximize", "", LpSection::kMaximize},
                                     {"maximise", "", LpSection::kMaximize},
                                     {"maximum", "", LpSection::kMaximize},
                                     {"max", "", LpSection::kMaximize},
                                     {"subject", "to", LpSection::kRows},
                                     {"such", "that", LpSection::kRows},
                                     {"st", "", LpSection::kRows},
                                     {"s.t.", "", LpSection::kRows},
                                     {"st.", "", LpSection::kRows},
                                     {"lazy", "constraints", LpSection::kRows},
                                     {"user", "cuts", LpSection::kRows},
                                     {"bounds", "", LpSection::kBounds},
                                     {"bound", "", LpSection::kBounds},
                                     {"general", "constraints", LpSection::kUnsupported},
                                     {"generals", "", LpSection::kGenerals},
                                     {"general", "", LpSection::kGenerals},
                                     {"gen", "", LpSection::kGenerals},
                                     {"integers", "", LpSection::kGenerals},
                                     {"integer", "", LpSection::kGenerals},
                                     {"int", "", LpSection::kGenerals},
                                     {"binaries", "", LpSection::kBinaries},
                                     {"binary", "", LpSection::kBinaries},
                                     {"bin", "", LpSection::kBinaries},
                                     {"semi-continuous", "", LpSection::kSemiContinuous},
                                     {"semis", "", LpSection::kSemiContinuous},
                                     {"semi", "", LpSection::kSemiContinuous},
                                     {"semi-integers", "", LpSection::kSemiIntegers},
                                     {"partial-integers", "", LpSection::kPartialIntegers},
                                     {"thresholds", "", LpSection::kThresholds},
                                     {"sos", "", LpSection::kSos},
                                     {"pwlobj", "", LpSection::kUnsupported},
                                     {"end", "", LpSection::kEnd}};

bool is_infinity(std::string_view word) {
    return equal_nocase(word, "inf") || equal_nocase(word, "infinity");
}

// Reads a name at `at`; the end of the text is a blank.
const char* name_end(const char* at) {
    int depth = 0;
    for (;; ++at) {
        const char c = *at;
        if (is_blank(c)) return at;
        switch (c) {
            case '+':
            case '-':
            case '*':
            case '/':
            case '^':
            case ':':
            case '<':
            case '>':
            case '=':
            case '\\':
                return at;
            case '[':
                ++depth;
                break;
            case ']':
                // One that was not opened within the name ends quadratic terms.
                if (depth == 0) return at;
                --depth;
                break;
            default:
                break;
        }
    }
}

const char* word_end(const char* at) {
    while (!is_blank(*at) && *at != '\\') ++at;
    return at;
}

}  // namespace

LpTokens::LpTokens(const Source& source) : source_(&source), at_(source.begin()) {
    // Programs that write LP files put the problem's name, which the format lacks, into a comment.
    constexpr std::string_view kMark = "problem name:";
    const char* const first = skip(at_);
    for (const char* line = source.begin(); line < first;) {
        const char* end = static_cast<const char*>(std::memchr(line, '\n', first - line));
        if (end == nullptr) end = first;
        std::string_view text = trim({line, static_cast<size_t>(end - line)});
        line = end + 1;
        if (text.empty() || text[0] != '\\') continue;
        text = trim(text.substr(1));
        if (equal_nocase(text.substr(0, kMark.size()), kMark)) {
            problem_name_ = trim(text.substr(kMark.size()));
            break;
        }
    }
    advance();
}

// To the next word; the end of the text is one.
const char* LpTokens::skip(const char* at) const {
    while (at < source_->end()) {
        if (*at == '\\') {
            at = static_cast<const char*>(std::memchr(at, '\n', source_->end() - at + 1));
        } else if (!is_blank(*at)) {
            break;
        } else {
            ++at;
        }
    }
    return at < source_->end() ? at : source_->end();
}

void LpTokens::advance() {
    const char* const from = at_;
    at_ = skip(at_);
    if (from != source_->begin()) {
        line_start_ = std::memchr(from, '\n', at_ - from) != nullptr;
    }
    now_ = LpToken();
    now_.text = std::string_view(at_, at_);
    if (at_ == source_->end()) return;
    if (line_start_ && scan_section()) return;
    const char* stop = scan_number(at_, source_->end(), now_.value);
    if (stop != nullptr) {
        now_.kind = LpKind::kNumber;
        now_.text = {at_, static_cast<size_t>(stop - at_)};
        at_ = stop;
        if (now_.value != now_.value) {
            source_->fail_at(where(), "%s is out of range", quote(now_.text).c_str());
        }
        // Two numbers in one word are a slip, though they could be told apart.
        if (*stop == '.') {
            const std::string_view word(now_.text.data(), name_end(stop) - now_.text.data());
            source_->fail_at(where(), "%s is not a number", quote(word).c_str());
        }
    } else if (std::strchr("+-*/^:<>=[]", *at_) != nullptr) {
        scan_sign();
    } else {
        scan_name();
    }
}

bool LpTokens::scan_section() {
    // Compared as raw text up to a blank, since some of these names hold signs and dots.
    const char* const end = word_end(at_);
    const std::string_view word(at_, end - at_);
    for (const SectionName& entry : kSections) {
        if (!equal_nocase(word, entry.first)) continue;
        const char* last = end;
        if (!entry.second.empty()) {
            const char* second = end;
            while (*second == ' ' || *second == '\t') ++second;
            last = word_end(second);
            if (!equal_nocase({second, static_cast<size_t>(last - second)}, entry.second)) continue;
        }
        if (*skip(last) == ':') continue;
        now_.kind = LpKind::kSection;
        now_.section = entry.section;
        now_.text = {at_, static_cast<size_t>(last - at_)};
        at_ = last;
        return true;
    }
    return false;
}

void LpTokens::scan_name() {
    const char* const end = name_end(at_);
    now_.text = {at_, static_cast<size_t>(end - at_)};
    if (end == at_) source_->fail_at(at_, "a name cannot begin with %s", quote({at_, 1}).c_str());
    at_ = end;
    now_.labels = *skip(end) == ':';
    now_.kind = is_infinity(now_.text) && !now_.labels ? LpKind::kInfinity : LpKind::kName;
}

void LpTokens::scan_sign() {
    const char first = at_[0];
    const char second = at_[1];
    size_t length = 1;
    switch (first) {
        case '+':
            now_.kind = LpKind::kPlus;
            break;
        case '*':
            now_.kind = LpKind::kTimes;
            break;
        case '/':
            now_.kind = LpKind::kDivide;
            break;
        case '^':
            now_.kind = LpKind::kPower;
            break;
        case ':':
            now_.kind = LpKind::kColon;
            break;
        case '[':
            now_.kind = LpKind::kOpen;
            break;
        case ']':
            now_.kind = LpKind::kClose;
            break;
        case '-':
            now_.kind = second == '>' ? LpKind::kArrow : LpKind::kMinus;
            length = second == '>' ? 2 : 1;
            break;
        case '<':
        case '>':
            now_.kind = first == '<' ? LpKind::kLess : LpKind::kGreater;
            length = second == '=' ? 2 : 1;
            break;
        default:  // =
            if (second == '<' || second == '>') {
                now_.kind = second == '<' ? LpKind::kLess : LpKind::kGreater;
            } else {
                now_.kind = LpKind::kEqual;
            }
            length = second == '<' || second == '>' || second == '=' ? 2 : 1;
    }
    now_.text = {at_, length};
    at_ += length;
}

bool LpTokens::valid_name(std::string_view name) {
    if (name.empty() || is_infinity(name) || equal_nocase(name, "free")) return false;
    if (name[0] == '[' || name[0] == ']') return false;
    double value;
    if (scan_number(name.data(), name.data() + name.size(), value) != nullptr) return false;
    for (const SectionName& entry : kSections) {
        if (equal_nocase(name, entry.first)) return false;
    }
    // name_end needs a blank behind the name.
    const std::string ended = std::string(name) + ' ';
    return name_end(ended.data()) == ended.data() + name.size();
}

}  // namespace nlra
