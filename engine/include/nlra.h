/* The optimizer library's C interface: the only way from a modeling layer into the engine.
 *
 * Conventions, once for all functions:
 * - The result is a status: 0 for success. After any other value the handle's last error
 *   (NLRAgetlasterror, NLRA_ge_getlasterror) tells code and text, and the call changed nothing.
 *   Each thread has its own last error of a handle. That of a null handle is the environment's.
 * - Indices are 32-bit and start at 0; starts and counts of coefficient arrays are 64-bit.
 * - A value at or beyond NLRA_PLUSINFINITY in magnitude is infinite. Coefficients and costs must be
 *   finite, lower bounds below and upper bounds above infinity, and a right-hand side must leave
 *   its row satisfiable (no E row at infinity). A lower bound may be above the upper one.
 * - "first to last" is inclusive; last = first - 1 stands for no object.
 * - Output arrays may be null: that output is not wanted.
 * - Text goes out into a caller's buffer and always ends with a NUL; name lists are packed, each
 *   name ended by a NUL.
 * - A problem belongs to one thread at a time. While it is being solved it is busy: every call
 *   that would change, solve or free it, from any thread or callback, fails with
 *   NLRA_ERROR_BUSY; NLRAinterrupt, reading controls, attributes, sizes, names and bounds stay
 *   allowed from its own callbacks. NLRAhold keeps other threads out for longer than a call.
 *   Different problems may be used in different threads at once.
 * - Callbacks are called on the thread that called the function during which they happen.
 */
#ifndef NLRA_H
#define NLRA_H

#include <stdint.h>

#if defined(__GNUC__)
#define NLRA_API __attribute__((visibility("default")))
#else
#define NLRA_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define NLRA_PLUSINFINITY 1.0e20
#define NLRA_MINUSINFINITY (-1.0e20)

/* Error codes (the code of a last error; also the status returned). */
enum {
    NLRA_ERROR_MEMORY = 1,      /* out of memory */
    NLRA_ERROR_ARGUMENT = 2,    /* an argument is out of its range; the text names it */
    NLRA_ERROR_STATE = 3,       /* not possible in the problem's present state */
    NLRA_ERROR_BUSY = 4,        /* the problem is being solved */
    NLRA_ERROR_NOTSTARTED = 5,  /* the library has not been started */
    NLRA_ERROR_FILE = 6,        /* file missing, unreadable, malformed, or not writable */
    NLRA_ERROR_CONTROL = 7,     /* unknown control or attribute, or value out of range */
    NLRA_ERROR_NONCONVEX = 8,   /* the problem is not convex (status attributes are 8 as well) */
    NLRA_ERROR_UNSUPPORTED = 9, /* no solver of this library takes such a problem */
    NLRA_ERROR_NOTFOUND = 10,   /* a name that the problem does not have */
    NLRA_ERROR_SOLVER = 11,     /* the solving engine failed numerically */
    NLRA_ERROR_CLOSED = 12      /* the handle outlived NLRAfree */
};

/* Reasons of NLRAinterrupt and values of the attribute "stopstatus". */
enum {
    NLRA_STOP_NONE = 0,
    NLRA_STOP_TIMELIMIT = 1,
    NLRA_STOP_CTRLC = 2,
    NLRA_STOP_NODELIMIT = 3,
    NLRA_STOP_ITERLIMIT = 4,
    NLRA_STOP_MIPGAP = 5,
    NLRA_STOP_SOLLIMIT = 6,
    NLRA_STOP_USER = 9
};

/* Types of controls and attributes as NLRAgetcontrolinfo and NLRAgetattribinfo tell them. */
enum {
    NLRA_TYPE_NOTDEFINED = 0,
    NLRA_TYPE_INT = 1,
    NLRA_TYPE_INT64 = 2,
    NLRA_TYPE_DOUBLE = 3,
    NLRA_TYPE_STRING = 4
};

/* Name types. */
enum { NLRA_NAMES_ROW = 1, NLRA_NAMES_COLUMN = 2, NLRA_NAMES_SET = 3 };

/* Identifiers that the modeling layer relies on. NLRAgetcalist_c lists all. */
enum {
    NLRA_ROWS = 1001,      /* rows of the matrix in its present state */
    NLRA_SETS = 1004,      /* special ordered sets */
    NLRA_LPSTATUS = 1010,  /* lp_... status of the last linear solve */
    NLRA_MIPSTATUS = 1011, /* mip_... status of the last mixed integer solve */
    NLRA_COLS = 1018,      /* columns of the matrix in its present state */
    NLRA_SPAREROWS = 1019,
    NLRA_QCONSTRAINTS = 1028, /* rows with quadratic terms */
    NLRA_MIPENTS = 1032,      /* columns that are not continuous */
    NLRA_ORIGINALROWS = 1124, /* rows of the problem as loaded */
    NLRA_ORIGINALSETS = 1194,
    NLRA_ORIGINALCOLS = 1214,
    NLRA_ORIGINALPWLCONS = 1325,
    NLRA_ORIGINALGENCONS = 1327,
    NLRA_LPOBJVAL = 2001,
    NLRA_MIPOBJVAL = 2003,
    NLRA_BESTBOUND = 2004,
    NLRA_OBJCONSTANT = 2007,
    NLRA_LOGLEVEL = 8035 /* integer control: 0 silent, 1 normal, 2 detailed */
};

/* Values of NLRA_LPSTATUS. */
enum {
    NLRA_LP_UNSTARTED = 0,
    NLRA_LP_OPTIMAL = 1,
    NLRA_LP_INFEAS = 2,
    NLRA_LP_CUTOFF = 3,
    NLRA_LP_UNFINISHED = 4,
    NLRA_LP_UNBOUNDED = 5,
    NLRA_LP_CUTOFF_IN_DUAL = 6,
    NLRA_LP_UNSOLVED = 7,
    NLRA_LP_NONCONVEX = 8
};

/* Values of NLRA_MIPSTATUS; 8 stands for a nonconvex continuous part. */
enum {
    NLRA_MIP_NOT_LOADED = 0,
    NLRA_MIP_LP_NOT_OPTIMAL = 1,
    NLRA_MIP_LP_OPTIMAL = 2,
    NLRA_MIP_NO_SOL_FOUND = 3,
    NLRA_MIP_SOLUTION = 4,
    NLRA_MIP_INFEAS = 5,
    NLRA_MIP_OPTIMAL = 6,
    NLRA_MIP_UNBOUNDED = 7,
    NLRA_MIP_NONCONVEX = 8
};

/* Message types of message callbacks. */
enum { NLRA_MSG_INFO = 1, NLRA_MSG_WARNING = 3, NLRA_MSG_ERROR = 4 };

typedef struct nlra_problem* NLRAprob;

/* One line of text, without the newline. */
typedef void (*NLRAmessagecb)(NLRAprob prob, void* data, const char* text, int length, int msgtype);
/* A message that reaches the global environment: `object` is a problem handle, or null. */
typedef int (*NLRAgemessagecb)(void* object, void* data, void* thread, const char* text,
                               int msgtype, int msgcode);
/* Called at least every 0.1 s during a solve; non-zero stops it with NLRA_STOP_USER unless
 * NLRAinterrupt named another reason before. */
typedef int (*NLRAchecktimecb)(NLRAprob prob, void* data);

/* ---- environment ------------------------------------------------------------------------ */

/* Start the library; `path` is unused and may be null. May be called again. */
NLRA_API int NLRAinit(const char* path);
/* Stop it. Live problem handles stay valid memory; every call on them fails with NLRA_ERROR_CLOSED
 * until the library is started again, but for NLRAdestroyprob, NLRArelease and the removal of
 * callbacks. Solves under way end early and fail so, whether or not it is started again meanwhile;
 * what they have found can be read when it is. Message handlers are removed. */
NLRA_API int NLRAfree(void);
/* At most 32 bytes, the NUL included. */
NLRA_API int NLRAgetversion(char* version);
/* At most 512 bytes, the NUL included. */
NLRA_API int NLRAgetbanner(char* banner);
/* Checked mode (default on) makes every loading function look through the contents of its arrays
 * (NaN, duplicate entries); off, only what memory safety needs is checked. */
NLRA_API int NLRAgetcheckedmode(int* checked);
NLRA_API int NLRAsetcheckedmode(int checked);
NLRA_API int NLRA_ge_getlasterror(int* code, char* text, int maxbytes, int* nbytes);
NLRA_API int NLRA_ge_addcbmsghandler(NLRAgemessagecb handler, void* data, int priority);
/* A null handler or data matches all. Removing what is not there is no error. Handlers (and the
 * callbacks of problems, likewise) are called by falling priority, the same one with the same data
 * once. */
NLRA_API int NLRA_ge_removecbmsghandler(NLRAgemessagecb handler, void* data);
/* The engine has one execution path on all processors: the switch is recorded only. */
NLRA_API int NLRA_ge_setarchconsistency(int consistent);
/* "NLRAprob" for a live problem handle, otherwise "unknown". */
NLRA_API int NLRAgetobjecttypename(void* object, const char** name);

/* ---- problems --------------------------------------------------------------------------- */

NLRA_API int NLRAcreateprob(NLRAprob* prob);
NLRA_API int NLRAdestroyprob(NLRAprob prob);
/* Keep the problem for this thread until NLRArelease: calls from others that would change, solve or
 * read results of it fail with NLRA_ERROR_BUSY, and so do a second NLRAhold and NLRAdestroyprob
 * from any. Not possible while the problem is being solved. */
NLRA_API int NLRAhold(NLRAprob prob);
NLRA_API int NLRArelease(NLRAprob prob);
/* Copy model, name (unless `name` is given and not empty) and solutions of `source` over `dest`;
 * controls and callbacks of `dest` stay. */
NLRA_API int NLRAcopyprob(NLRAprob dest, NLRAprob source, const char* name);
NLRA_API int NLRAcopycontrols(NLRAprob dest, NLRAprob source);
NLRA_API int NLRAsetprobname(NLRAprob prob, const char* name);
/* At most maxbytes with the NUL; *nbytes is what the whole name needs, NUL included. */
NLRA_API int NLRAgetprobname(NLRAprob prob, char* name, int maxbytes, int* nbytes);
/* The code is 0 and the text empty when nothing has failed since the last success of a call that
 * can fail. */
NLRA_API int NLRAgetlasterror(NLRAprob prob, int* code, char* text, int maxbytes, int* nbytes);

/* ---- loading and changing --------------------------------------------------------------- */

/* Replace the whole model. Column-wise matrix; `count` (entries per column) may be null, the
 * column then ends where the next one starts and start has ncols + 1 entries. Row types L G E R N;
 * an R row has rhs - |range| <= row <= rhs. All columns are continuous. A null `upper` means
 * infinite, a null `lower` zero. */
NLRA_API int NLRAloadlp(NLRAprob prob, const char* name, int ncols, int nrows, const char* rowtype,
                        const double* rhs, const double* range, const double* obj, const int* start,
                        const int* count, const int* rowind, const double* value,
                        const double* lower, const double* upper);
NLRA_API int NLRAloadlp64(NLRAprob prob, const char* name, int ncols, int nrows,
                          const char* rowtype, const double* rhs, const double* range,
                          const double* obj, const int64_t* start, const int* count,
                          const int* rowind, const double* value, const double* lower,
                          const double* upper);
/* Append rows. start has nrows entries or more; row i ends at start[i + 1], the last one at
 * ncoefs. `range` may be null (zero). A column may occur once per row; zero values are dropped. */
NLRA_API int NLRAaddrows64(NLRAprob prob, int nrows, int64_t ncoefs, const char* rowtype,
                           const double* rhs, const double* range, const int64_t* start,
                           const int* colind, const double* value);
/* Append continuous columns, the same way. A null obj is zero; null bounds as in NLRAloadlp. */
NLRA_API int NLRAaddcols64(NLRAprob prob, int ncols, int64_t ncoefs, const double* obj,
                           const int64_t* start, const int* rowind, const double* value,
                           const double* lower, const double* upper);
/* Names of the rows, columns or sets first to last, packed. Names may repeat; a look-up then
 * finds the first. An empty name stands for none. */
NLRA_API int NLRAaddnames(NLRAprob prob, int type, const char* names, int first, int last);
/* The same for names that are R, C or S and a positive number, without the texts: they take no
 * more memory than no name. The caller gives every number out once; those that are other objects'
 * names all the same, from NLRAaddnames or a file, are counted in *ntaken and their places among
 * the numbers go into `taken`, which has room for all (both null: not wanted). */
NLRA_API int NLRAnumbernames(NLRAprob prob, int type, const int64_t* numbers, int first, int last,
                             int* ntaken, int* taken);
/* Append sets; settype '1' or '2' each; start has nsets entries or more, as in NLRAaddrows64.
 * Weights order a set's columns and must differ within a set. */
NLRA_API int NLRAaddsets64(NLRAprob prob, int nsets, int64_t nelems, const char* settype,
                           const int64_t* start, const int* colind, const double* weight);
/* Quadratic terms of one row: the row's value gains x'Qx with symmetric Q. Each pair of columns
 * is given once, in any order, and stands for both halves: an entry q adds q*x*x when the columns
 * are equal and 2*q*x*y otherwise. Replaces what the row had. */
NLRA_API int NLRAaddqmatrix64(NLRAprob prob, int row, int64_t ncoefs, const int* col1,
                              const int* col2, const double* value);
/* Column index -1 is the objective's constant: its value is minus the number to be added. */
NLRA_API int NLRAchgobj(NLRAprob prob, int n, const int* colind, const double* value);
/* Quadratic objective: the objective gains 0.5 x'Qx with symmetric Q. Each pair is given once and
 * stands for both halves: a value q sets q*x*y for two columns, 0.5*q*x*x for one. Sets entries
 * (zero removes); a pair given twice is an error in checked mode. */
NLRA_API int NLRAchgmqobj(NLRAprob prob, int n, const int* col1, const int* col2,
                          const double* value);
NLRA_API int NLRAchgmqobj64(NLRAprob prob, int64_t n, const int* col1, const int* col2,
                            const double* value);
/* 1 minimize, -1 maximize. */
NLRA_API int NLRAchgobjsense(NLRAprob prob, int sense);
/* Column types C B I S R P. Type B also intersects the bounds with 0 to 1. For S, R and P the
 * limit is 0 (all of the range) until NLRAchgglblimit. */
NLRA_API int NLRAchgcoltype(NLRAprob prob, int n, const int* colind, const char* coltype);
/* S and R: the smallest non-zero value, at least 0; P: the value up to which the column is
 * integral. Columns of other types have no limit. */
NLRA_API int NLRAchgglblimit(NLRAprob prob, int n, const int* colind, const double* limit);
/* Bound types L U B (both). A column of type B with bounds beyond 0 and 1 becomes one of type I. */
NLRA_API int NLRAchgbounds(NLRAprob prob, int n, const int* colind, const char* bndtype,
                           const double* bound);
NLRA_API int NLRAchgrhs(NLRAprob prob, int n, const int* rowind, const double* rhs);
NLRA_API int NLRAchgcoef(NLRAprob prob, int row, int col, double value);
/* Delete; no index twice. Later ones move down. Columns leave their rows, quadratic terms and
 * sets; an indicator on a deleted column makes the call fail. Solutions are dropped, a basis is
 * kept where it can. */
NLRA_API int NLRAdelrows(NLRAprob prob, int n, const int* rowind);
NLRA_API int NLRAdelcols(NLRAprob prob, int n, const int* colind);
NLRA_API int NLRAdelsets(NLRAprob prob, int n, const int* setind);
/* Row i holds only where binary column colind[i] is 1 (complement 1) or 0 (complement -1);
 * complement 0 makes it an ordinary row again, whatever its colind. */
NLRA_API int NLRAsetindicators(NLRAprob prob, int n, const int* rowind, const int* colind,
                               const int* complement);

/* ---- reading the model back ------------------------------------------------------------- */

/* Index of a name; NLRA_ERROR_NOTFOUND when there is none. */
NLRA_API int NLRAgetindex(NLRAprob prob, int type, const char* name, int* index);
/* Packed names first to last into a buffer of maxbytes; *nbytes is what they need. Objects that
 * have no name read as R1, C1, S1 and so on (index + 1). Null names asks for the size; a buffer
 * that is too small is an error, with *nbytes set. */
NLRA_API int NLRAgetnames(NLRAprob prob, int type, char* names, int64_t maxbytes, int64_t* nbytes,
                          int first, int last);
NLRA_API int NLRAgetlb(NLRAprob prob, double* lower, int first, int last);
NLRA_API int NLRAgetub(NLRAprob prob, double* upper, int first, int last);
NLRA_API int NLRAgetobj(NLRAprob prob, double* obj, int first, int last);
NLRA_API int NLRAgetcoltype(NLRAprob prob, char* coltype, int first, int last);
NLRA_API int NLRAgetrowtype(NLRAprob prob, char* rowtype, int first, int last);
NLRA_API int NLRAgetrhs(NLRAprob prob, double* rhs, int first, int last);
NLRA_API int NLRAgetrhsrange(NLRAprob prob, double* range, int first, int last);
/* Rows first to last: start gets last - first + 2 entries; at most `size` coefficients are
 * written; *ncoefs is how many there are. */
NLRA_API int NLRAgetrows64(NLRAprob prob, int64_t* start, int* colind, double* value, int64_t size,
                           int64_t* ncoefs, int first, int last);
/* Quadratic objective, columns first to last: the entries with col1 in the range and
 * col1 <= col2, as NLRAchgmqobj takes them; start has last - first + 2 entries. */
NLRA_API int NLRAgetmqobj64(NLRAprob prob, int64_t* start, int* colind, double* value, int64_t size,
                            int64_t* ncoefs, int first, int last);
NLRA_API int NLRAgetmqobj(NLRAprob prob, int* start, int* colind, double* value, int size,
                          int* ncoefs, int first, int last);
/* Quadratic terms of a row as NLRAaddqmatrix64 takes them, col1 <= col2. */
NLRA_API int NLRAgetqrowqmatrixtriplets(NLRAprob prob, int row, int64_t* ncoefs, int* col1,
                                        int* col2, double* value);
/* The mixed integer data: types and limits of the columns that are not continuous; the sets with
 * starts (nsets + 1 entries), columns and weights. Null arrays ask for the sizes. */
NLRA_API int NLRAgetglobal64(NLRAprob prob, int* nentities, int* nsets, char* coltype, int* colind,
                             double* limit, char* settype, int64_t* start, int* setcols,
                             double* weight);
/* Of the rows first to last: column and complement, -1 and 0 where a row is no indicator row. */
NLRA_API int NLRAgetindicators(NLRAprob prob, int* colind, int* complement, int first, int last);

/* ---- files ------------------------------------------------------------------------------ */

/* The name's ending decides: .mps or none: MPS, .lp: LP, .nlm: nonlinear models (which are also
 * known by their content); a further .gz: compressed. For reading, the name without an ending as
 * given, then with .mps, .lp, .nlm and these with .gz is tried. Options: 'l' LP format, 'g' that of
 * nonlinear models whatever the name; 'z' compressed; 'x' fixed-column MPS. The problem's model is
 * replaced, or unchanged after an error. The error text begins "file:line: ". A file with formulas
 * gives NLRA_ERROR_UNSUPPORTED: NSLPreadprob reads it. Objects that have no name in the file are
 * named R, C or S and index + 1, or another number where that is a name in the file. */
NLRA_API int NLRAreadprob(NLRAprob prob, const char* filename, const char* options);
NLRA_API int NLRAwriteprob(NLRAprob prob, const char* filename, const char* options);

/* ---- solving ---------------------------------------------------------------------------- */

/* Solve the continuous relaxation or the continuous problem. Flags: 'd' dual simplex, 'p' primal
 * simplex, 'b' interior point (with crossover); none: the control "lpmethod". Returns 0 whenever
 * the status attribute tells the outcome, also after a stop; NLRA_ERROR_NONCONVEX with status 8. */
NLRA_API int NLRAlpoptimize(NLRAprob prob, const char* flags);
/* Solve as a mixed integer problem. Flags as above for the relaxation, and 'l': stop after the
 * relaxation, whose solution NLRAgetlpsol then gives. All solves ignore the letters of others. */
NLRA_API int NLRAmipoptimize(NLRAprob prob, const char* flags);
/* Ask the running solve to stop for the given reason (NLRA_STOP_...). From any thread. Without a
 * running solve it does nothing. */
NLRA_API int NLRAinterrupt(NLRAprob prob, int reason);
/* Value, slack (rhs - row value), dual value (derivative of the objective by the right-hand
 * side), reduced cost of the last linear solve. Without one, an error. */
NLRA_API int NLRAgetlpsol(NLRAprob prob, double* x, double* slack, double* dual, double* dj);
/* The same for one column and one row, in constant time. An index that no wanted value (pointer not
 * null) belongs to is not looked at. */
NLRA_API int NLRAgetlpsolval(NLRAprob prob, int col, int row, double* x, double* slack,
                             double* dual, double* dj);
/* Incumbent of the mixed integer solve. */
NLRA_API int NLRAgetmipsol(NLRAprob prob, double* x, double* slack);
NLRA_API int NLRAgetmipsolval(NLRAprob prob, int col, int row, double* x, double* slack);
/* Give a starting solution for the next mixed integer solve: `n` values for the columns colind,
 * or, with null colind, for all columns in order (n = their number). Missing columns are
 * completed by the solver. The latest 100 are kept. `name` may be null. */
NLRA_API int NLRAaddmipsol(NLRAprob prob, int n, const double* value, const int* colind,
                           const char* name);

/* ---- callbacks -------------------------------------------------------------------------- */

NLRA_API int NLRAaddcbmessage(NLRAprob prob, NLRAmessagecb callback, void* data, int priority);
NLRA_API int NLRAremovecbmessage(NLRAprob prob, NLRAmessagecb callback, void* data);
NLRA_API int NLRAaddcbchecktime(NLRAprob prob, NLRAchecktimecb callback, void* data, int priority);
NLRA_API int NLRAremovecbchecktime(NLRAprob prob, NLRAchecktimecb callback, void* data);

/* ---- controls and attributes ------------------------------------------------------------ */

/* The 64-bit forms take 32-bit controls and attributes too, the 32-bit ones no 64-bit ones. */
NLRA_API int NLRAgetintcontrol(NLRAprob prob, int id, int* value);
NLRA_API int NLRAgetintcontrol64(NLRAprob prob, int id, int64_t* value);
NLRA_API int NLRAgetdblcontrol(NLRAprob prob, int id, double* value);
NLRA_API int NLRAgetstringcontrol(NLRAprob prob, int id, char* value, int maxbytes, int* nbytes);
NLRA_API int NLRAsetintcontrol(NLRAprob prob, int id, int value);
NLRA_API int NLRAsetintcontrol64(NLRAprob prob, int id, int64_t value);
NLRA_API int NLRAsetdblcontrol(NLRAprob prob, int id, double value);
NLRA_API int NLRAsetstrcontrol(NLRAprob prob, int id, const char* value);
NLRA_API int NLRAgetintattrib(NLRAprob prob, int id, int* value);
NLRA_API int NLRAgetintattrib64(NLRAprob prob, int id, int64_t* value);
NLRA_API int NLRAgetdblattrib(NLRAprob prob, int id, double* value);
NLRA_API int NLRAgetstringattrib(NLRAprob prob, int id, char* value, int maxbytes, int* nbytes);
/* Identifier and type (NLRA_TYPE_...) of a name, whatever its case; identifier 0 when unknown. */
NLRA_API int NLRAgetcontrolinfo(NLRAprob prob, const char* name, int* id, int* type);
NLRA_API int NLRAgetattribinfo(NLRAprob prob, const char* name, int* id, int* type);

/* One row of the list of controls and attributes. Flag bit 0: integer (32 or 64 bit), bit 1:
 * floating point, neither: string; bit 5 (32): control, else attribute. */
typedef struct {
    const char* name; /* null or empty ends the list */
    int id;
    int flags;
    const char* description; /* one sentence with default and range */
} NLRAcalistentry;
/* The library's own static table; *n rows before the end row. */
NLRA_API int NLRAgetcalist_c(NLRAprob prob, const NLRAcalistentry** list, int* n);

#ifdef __cplusplus
}
#endif

#endif
