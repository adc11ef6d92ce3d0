// Names of rows, columns and sets.
#include <cstring>

#include "api/boundary.hpp"
#include "api/checks.hpp"

namespace nlra {
namespace {

Kind name_kind(int type) {
    switch (type) {
        case NLRA_NAMES_ROW:
            return Kind::kRow;
        case NLRA_NAMES_COLUMN:
            return Kind::kColumn;
        case NLRA_NAMES_SET:
            return Kind::kSet;
        default:
            fail(NLRA_ERROR_ARGUMENT, "type = %d is not a type of names (1 to 3)", type);
    }
}

Names& names_of(Model& model, Kind kind) {
    return kind == Kind::kRow      ? model.rownames
           : kind == Kind::kColumn ? model.colnames
                                   : model.setnames;
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAaddnames(NLRAprob prob, int type, const char* names, int first, int last) {
    return call_unsettled(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        const Kind kind = name_kind(type);
        const int count = check_range(first, last, names_of(problem.model, kind).size(), kind);
        check_array("names", names, count);
        names_of(problem.model, kind).set_packed(first, count, names);
    });
}

int NLRAnumbernames(NLRAprob prob, int type, const int64_t* numbers, int first, int last,
                    int* ntaken, int* taken) {
    return call_unsettled(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        const Kind kind = name_kind(type);
        const int count = check_range(first, last, names_of(problem.model, kind).size(), kind);
        check_array("numbers", numbers, count);
        for (int i = 0; i < count; ++i) {
            if (numbers[i] > 0) continue;
            fail(NLRA_ERROR_ARGUMENT, "numbers[%d] = %lld is not positive", i,
                 static_cast<long long>(numbers[i]));
        }
        const int found = names_of(problem.model, kind).set_numbered(first, count, numbers, taken);
        if (ntaken != nullptr) *ntaken = found;
    });
}

int NLRAgetindex(NLRAprob prob, int type, const char* name, int* index) {
    return call_unsettled(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        const Kind kind = name_kind(type);
        check_array("name", name, 1);
        check_array("index", index, 1);
        const int found = names_of(problem.model, kind).find(name);
        if (found < 0) {
            fail(NLRA_ERROR_NOTFOUND, "there is no %s named '%s'",
                 kind == Kind::kRow      ? "row"
                 : kind == Kind::kColumn ? "column"
                                         : "set",
                 name);
        }
        *index = found;
    });
}

int NLRAgetnames(NLRAprob prob, int type, char* names, int64_t maxbytes, int64_t* nbytes, int first,
                 int last) {
    return call_unsettled(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        const Kind kind = name_kind(type);
        const int count = check_range(first, last, names_of(problem.model, kind).size(), kind);
        const Names& all = names_of(problem.model, kind);
        int64_t needed = 0;
        for (int i = first; i < first + count; ++i) {
            needed +=
                1 + static_cast<int64_t>(all.has_text(i) ? all.view(i).size() : all.get(i).size());
        }
        if (nbytes != nullptr) *nbytes = needed;
        if (names == nullptr) return;
        if (maxbytes < needed) {
            fail(NLRA_ERROR_ARGUMENT, "maxbytes = %lld is not enough: the names take %lld bytes",
                 static_cast<long long>(maxbytes), static_cast<long long>(needed));
        }
        for (int i = first; i < first + count; ++i) {
            const auto put = [&](std::string_view name) {
                std::memcpy(names, name.data(), name.size());
                names[name.size()] = '\0';
                names += name.size() + 1;
            };
            all.has_text(i) ? put(all.view(i)) : put(all.get(i));
        }
    });
}
