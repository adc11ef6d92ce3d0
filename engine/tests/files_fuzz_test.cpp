// Damaged files: whatever a few random changes make of a valid file, reading it ends, with a model
// or with an error, and a model that was read and can be written is read back unchanged.
#include <cstdlib>

#include "files_support.hpp"

using namespace files_test;

namespace {

class Damage {
  public:
    explicit Damage(unsigned seed) : engine_(seed) {}

    std::string apply(std::string text) {
        for (int i = below(3); i >= 0; --i) change(text);
        return text;
    }

  private:
    size_t below(size_t n) { return n == 0 ? 0 : engine_() % n; }

    void change(std::string& text) {
        static const char* const kWords[] = {
            " 1e30 ",     " inf ",        "-inf",       " nan ",      "-",
            " [ ",        " ] / 2",       " -> ",       ":",          "\n",
            " S1 ",       "::",           "<=",         " = ",        " x0 ",
            "\nBOUNDS\n", "^ 2",          "*",          "\nEnd\n",    " 0 ",
            "1e400",      " SC ",         "\\",         "\nBounds\n", "\t",
            "\r\n",       " free ",       " R1 ",       " OBJ ",      " C1 ",
            ".",          "\xff",         " RHS ",      "\nENDATA\n", "'",
            "+",          "\nGenerals\n", " 'MARKER' ", "\nSOS\n",    "\nROWS\n",
            " @1 ",       "sin(",         ")",          "(",          "\"",
            "\n & ",      "\nrow - R 1",  " formula ",  "\nend\n",    ","};
        const size_t at = below(text.size() + 1);
        switch (below(6)) {
            case 0:
                text.erase(at, 1 + below(4));
                break;
            case 1:
                text.erase(at, below(60));
                break;
            case 2:
                text.insert(at, kWords[below(sizeof(kWords) / sizeof(kWords[0]))]);
                break;
            case 3:
                text.insert(at, text.substr(below(text.size() + 1), below(40)));
                break;
            case 4:
                if (at < text.size()) text[at] = static_cast<char>(1 + below(255));
                break;
            default:  // a line again
                const size_t begin = text.rfind('\n', at) + 1;
                const size_t end = std::min(text.find('\n', at), text.size());
                if (begin < end) text.insert(begin, text.substr(begin, end - begin) + '\n');
        }
    }

    std::mt19937 engine_;
};

void check_damaged(Format format, unsigned count) {
    // For longer runs by hand.
    if (const char* factor = std::getenv("NALORA_FUZZ_FACTOR")) count *= std::atoi(factor);
    unsigned read = 0;
    for (unsigned seed = 0; seed < count; ++seed) {
        const std::string original = to_text(RandomModel(seed / 10, format).make(), format);
        const std::string text = Damage(seed).apply(original);
        std::string again;
        std::string trouble;
        try {
            const Model model = from_text(text, format);
            ++read;
            try {
                again = to_text(model, format);
            } catch (const Error&) {
                continue;  // names that only reading by columns understands
            }
            trouble = difference(model, from_text(again, format));
        } catch (const Error& error) {
            if (!again.empty()) trouble = error.text;
            CHECK(error.code == NLRA_ERROR_FILE);
        }
        if (!CHECK(trouble.empty())) {
            std::fprintf(stderr, "seed %u: %s\n%s\n%s\n", seed, trouble.c_str(), text.c_str(),
                         again.c_str());
            return;
        }
    }
    // Neither everything nor nothing may be taken.
    CHECK(read > count / 100 && read < count - count / 100);
}

}  // namespace

TEST("files: damaged free MPS files") { check_damaged(Format::kMps, 2000); }
TEST("files: damaged LP files") { check_damaged(Format::kLp, 2000); }
TEST("files: damaged files of nonlinear models") { check_damaged(Format::kNonlinear, 4000); }
