/* The nonlinear solver's C interface. A nonlinear problem sits on an optimizer problem, shares its
 * columns, rows and objective, and adds what is nonlinear. It should be destroyed before that one:
 * afterwards every call on it but NSLPdestroyprob and NSLPgetlasterror fails.
 * Conventions are those of nlra.h. */
#ifndef NSLP_H
#define NSLP_H

#include "nlra.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct nslp_problem* NSLPprob;

/* Identifiers that the modeling layer relies on. */
enum {
    NSLP_ROWS = 11999,          /* rows, those of nonlinear formulas included */
    NSLP_COLS = 12000,          /* columns */
    NSLP_STATUS = 12044,        /* nlp_... status of the last nonlinear solve, 0 before one */
    NSLP_OBJVAL = 12179,        /* objective value of the last nonlinear solve */
    NSLP_NONLINEARROWS = 12601, /* rows with nonlinear formulas */
    NSLP_NONLINEAROBJ = 12604,  /* 1 if the objective has a nonlinear formula */
    NSLP_THREADS = 12415 /* integer control: threads for evaluating, 0: the library decides */
};

/* Values of NSLP_STATUS after a solve. */
enum {
    NSLP_LOCALLY_OPTIMAL = 1,
    NSLP_GLOBALLY_OPTIMAL = 2,
    NSLP_LOCALLY_INFEASIBLE = 3,
    NSLP_INFEASIBLE = 4,
    NSLP_UNBOUNDED = 5,
    NSLP_UNFINISHED = 6
};

typedef void (*NSLPmessagecb)(NSLPprob prob, void* data, const char* text, int length, int msgtype);

/* The optimizer must have been started. */
NLRA_API int NSLPinit(void);
NLRA_API int NSLPfree(void);
NLRA_API int NSLPcreateprob(NSLPprob* prob, NLRAprob base);
NLRA_API int NSLPdestroyprob(NSLPprob prob);
/* Copies what is nonlinear; the optimizer problems beneath are copied by NLRAcopyprob. */
NLRA_API int NSLPcopyprob(NSLPprob dest, NSLPprob source, const char* name);
NLRA_API int NSLPcopycontrols(NSLPprob dest, NSLPprob source);
NLRA_API int NSLPgetlasterror(NSLPprob prob, int* code, char* text, int maxbytes, int* nbytes);
/* One message callback per problem; null removes it. It gets the lines that the problem beneath has
 * no message callback of its own for, and must not add or remove problems. */
NLRA_API int NSLPsetcbmessage(NSLPprob prob, NSLPmessagecb callback, void* data);

NLRA_API int NSLPgetintcontrol(NSLPprob prob, int id, int* value);
NLRA_API int NSLPgetdblcontrol(NSLPprob prob, int id, double* value);
NLRA_API int NSLPgetstrcontrol(NSLPprob prob, int id, char* value, int maxbytes, int* nbytes);
NLRA_API int NSLPsetintcontrol(NSLPprob prob, int id, int value);
NLRA_API int NSLPsetdblcontrol(NSLPprob prob, int id, double value);
NLRA_API int NSLPsetstrcontrol(NSLPprob prob, int id, const char* value);
NLRA_API int NSLPgetintattrib(NSLPprob prob, int id, int* value);
NLRA_API int NSLPgetdblattrib(NSLPprob prob, int id, double* value);
NLRA_API int NSLPgetstrattrib(NSLPprob prob, int id, char* value, int maxbytes, int* nbytes);

/* The nonlinear solver's controls and attributes: the solver's own list, and the list of the
 * interior point method beneath. Rows as in NLRAgetcalist_c. */
NLRA_API int NSLPgetcalist(NSLPprob prob, const NLRAcalistentry** list, int* n);
NLRA_API int NSLPgetKTRcalist(NSLPprob prob, const NLRAcalistentry** list, int* n);
/* Identifier and code of a name, both 0 for an unknown one. Code bits: 1 integer, 2 floating
 * point, 4 string, 16 control (else attribute), 0x200 internal: not for modeling layers. */
NLRA_API int NSLPcontrolcode(NSLPprob prob, const char* name, int* id, int* code);

/* ---- Formulas ---------------------------------------------------------------------------------
 * A formula is a sequence of tokens in postfix order, each a type and a value, ended by a token of
 * type NSLP_TOKEN_END. The arguments of a function stand between a token NSLP_TOKEN_ARGUMENTS and
 * the function's own, with NSLP_TOKEN_COMMA between one and the next. */
enum {
    NSLP_TOKEN_END = 0,
    NSLP_TOKEN_CONSTANT = 1,      /* the value */
    NSLP_TOKEN_COLUMN = 10,       /* index of the column */
    NSLP_TOKEN_USERFUNCTION = 11, /* index of the user function */
    NSLP_TOKEN_FUNCTION = 12,     /* NSLP_FUNCTION_... */
    NSLP_TOKEN_ARGUMENTS = 21,
    NSLP_TOKEN_COMMA = 22,
    NSLP_TOKEN_OPERATOR = 31 /* NSLP_OPERATOR_... */
};
enum {
    NSLP_OPERATOR_NEGATE = 1,
    NSLP_OPERATOR_POWER = 2,
    NSLP_OPERATOR_MULTIPLY = 3,
    NSLP_OPERATOR_DIVIDE = 4,
    NSLP_OPERATOR_PLUS = 5,
    NSLP_OPERATOR_MINUS = 6
};

/* Add n coefficients: factor[i] times column colindex[i] (-1: times 1) times the formula that
 * begins at token fstart[i] is added to row rowindex[i], or to the objective where that is -1. A
 * null colindex stands for -1s, a null factor for 1s. parsed must be 1. The formulas are checked
 * as a whole before anything changes. No length of type and value is given: fstart must point
 * into them, and each formula is read up to its end token, which must be there. */
NLRA_API int NSLPaddcoefs(NSLPprob prob, int n, const int* rowindex, const int* colindex,
                          const double* factor, const int* fstart, int parsed, const int* type,
                          const double* value);
/* Remove all coefficients of the rows given, -1 standing for the objective. */
NLRA_API int NSLPdelcoefs(NSLPprob prob, int n, const int* rowindex);
/* Put one formula in place of all that a row has, or the objective (-1). Null types: none. The
 * formula is read up to its end token. */
NLRA_API int NSLPchgformula(NSLPprob prob, int rowindex, const int* type, const double* value);

/* A user function computes *value, and where derivatives is not null the partial derivatives by
 * its n arguments (only asked for if it was added with derivatives). Called on the thread that
 * solves; another result than 0 ends the solve. */
typedef int (*NSLPuserfunction)(void* object, const double* args, int n, double* value,
                                double* derivatives);
/* *index is what NSLP_TOKEN_USERFUNCTION tokens hold. */
NLRA_API int NSLPadduserfunction(NSLPprob prob, const char* name, NSLPuserfunction function,
                                 void* object, int arguments, int derivatives, int* index);
/* Forget a user function that no formula calls (any more): *index becomes its index, which one that
 * is added later may get, or -1 when formulas call all that there are. */
NLRA_API int NSLPforgetuserfunction(NSLPprob prob, int* index);
NLRA_API int NSLPgetuserfuncobject(NSLPprob prob, int index, void** object);

/* Starting values of columns; the next solve begins there, as far as the bounds allow. Solves after
 * it begin where the one before them ended, until values are set again. */
NLRA_API int NSLPsetinitialvalues(NSLPprob prob, int n, const int* colindex, const double* value);

/* What is known about a column. The fields from detrow to vartype are those of methods that solve a
 * sequence of linear problems, in the usual order; where the interior point method has nothing like
 * it, they tell what it does instead. */
typedef struct {
    int detrow;           /* row that determines the column: -1, none */
    double initstepbound; /* bound of a step: 1e+20, none */
    double stepbound;     /* likewise */
    double penalty;       /* for keeping to step bounds: 0 */
    double damp;          /* share of a step that is taken: 1 */
    double initvalue;     /* starting value, 0 where none was given */
    double value;         /* at the present point, see NSLPevaluateformula */
    int tolset;           /* set of tolerances of its own: 0, none */
    int history;          /* iterations that it has been converged: 0, not counted */
    int converged;        /* 1 after a solve that ended with a solution, else 0 */
    int vartype;          /* 0 for a continuous column, else 1 */
    int started;          /* 1 if a starting value was given, else 0 */
    int fixed;            /* 1 if the bounds are equal, else 0 */
    int atbound;          /* -1 if value is at the lower bound, 1 if at the upper one, else 0 */
    double dj;            /* reduced cost in the last nonlinear solution, 0 without one */
} NSLPvarinfo;
NLRA_API int NSLPgetvar(NSLPprob prob, int colindex, NSLPvarinfo* info);
/* Set a column's starting value, as NSLPsetinitialvalues does, and its value at the present point,
 * which stays until the next solve or change of the problem. Null leaves a value as it is. */
NLRA_API int NSLPchgvar(NSLPprob prob, int colindex, const double* initvalue, const double* value);

/* ---- Evaluating -------------------------------------------------------------------------------
 * The present point is the solution of the last nonlinear solve; without one, or after a change of
 * the problem, it is made of the starting values, where there are none of zeros or the bounds next
 * to them. NSLPchgvar can move it. A formula that is not defined there is an error. */

/* The value of a parsed formula (parsed must be 1), which is read up to its end token. */
NLRA_API int NSLPevaluateformula(NSLPprob prob, int parsed, const int* type, const double* value,
                                 double* result);
/* The value of what stands before a column in a row, or in the objective (-1): the sum of factor
 * times formula over the coefficients that were added with this colindex (-1: without a column). */
NLRA_API int NSLPevaluatecoef(NSLPprob prob, int rowindex, int colindex, double* result);
/* Log by how much the last nonlinear solution violates rows, bounds, integrality and sets, computed
 * anew: the largest absolute violation and where it is, the largest one relative to the side that
 * is missed, the sum. */
NLRA_API int NSLPvalidate(NSLPprob prob);
/* The same for any point (a value per column): sum of the absolute violations, the largest one, the
 * objective. Null pointers are skipped. */
NLRA_API int NSLPvalidatevector(NSLPprob prob, const double* vector, double* sum, double* largest,
                                double* objective);

/* ---- Files ------------------------------------------------------------------------------------
 * Files of nonlinear models hold everything but solutions and user functions. */

/* As NLRAreadprob, and files with formulas as well. */
NLRA_API int NSLPreadprob(NSLPprob prob, const char* filename, const char* flags);
/* Write the format of nonlinear models, whatever the name's ending, but .gz: compressed. Flag: 'z'
 * compressed. NLRA_ERROR_UNSUPPORTED when a formula calls a user function. */
NLRA_API int NSLPwriteprob(NSLPprob prob, const char* filename, const char* flags);

/* ---- Solving ----------------------------------------------------------------------------------
 * Solve the problem with its formulas: exactly, as a linear or mixed integer problem, where they
 * are piecewise linear; by outer approximation where the problem is convex and has columns that are
 * not continuous; otherwise by an interior point method, for a local optimum, which is a global one
 * where the problem is proven to be convex. Functions with kinks in convex position become smooth
 * rows; other kinks get subgradients, which the log says. No flag has a meaning yet; 'g' and the
 * letters of the linear solves are ignored. A return of 0 means that the solve ended in an orderly
 * way; NSLP_STATUS tells the outcome. */
NLRA_API int NSLPnlpoptimize(NSLPprob prob, const char* flags);
/* As NLRAgetlpsol, of the last nonlinear solve. */
NLRA_API int NSLPgetslpsol(NSLPprob prob, double* x, double* slack, double* dual, double* dj);
/* The same for one column and one row, as NLRAgetlpsolval. */
NLRA_API int NSLPgetslpsolval(NSLPprob prob, int col, int row, double* x, double* slack,
                              double* dual, double* dj);

#ifdef __cplusplus
}
#endif

#endif
