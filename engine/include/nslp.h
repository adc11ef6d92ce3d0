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
    NSLP_ROWS = 11999,   /* rows, those of nonlinear formulas included */
    NSLP_COLS = 12000,   /* columns */
    NSLP_STATUS = 12044, /* nlp_... status of the last nonlinear solve, 0 before one */
    NSLP_OBJVAL = 12179, /* objective value of the last nonlinear solve */
    NSLP_THREADS = 12415 /* integer control: threads for evaluating, 0: the library decides */
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
/* One message callback per problem; null removes it. */
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

#ifdef __cplusplus
}
#endif

#endif
