/* The four entry points of METIS 4 that MUMPS and Ipopt were linked against, without METIS, whose
 * licence forbids passing it on. The orderings are the identity and the partition is by blocks:
 * valid answers, but poor ones, so the Ipopt adapter selects AMD or AMF and they are never asked.
 * The signatures are those of METIS 4: 32-bit indices, arrays numbered from *numflag (0 or 1). */

#define EXPORT __attribute__((visibility("default")))

EXPORT void metis_nodend_(const int *n, const int *xadj, const int *adjncy, const int *numflag,
                          const int *options, int *perm, int *iperm);
EXPORT void metis_nodewnd_(const int *n, const int *xadj, const int *adjncy, const int *vwgt,
                           const int *numflag, const int *options, int *perm, int *iperm);
EXPORT void METIS_PartGraphKway(const int *n, const int *xadj, const int *adjncy, const int *vwgt,
                                const int *adjwgt, const int *wgtflag, const int *numflag,
                                const int *nparts, const int *options, int *edgecut, int *part);

static void identity(int n, int base, int *perm, int *iperm) {
    for (int i = 0; i < n; ++i) perm[i] = iperm[i] = i + base;
}

void metis_nodend_(const int *n, const int *xadj, const int *adjncy, const int *numflag,
                   const int *options, int *perm, int *iperm) {
    (void)xadj, (void)adjncy, (void)options;
    identity(*n, *numflag, perm, iperm);
}

void metis_nodewnd_(const int *n, const int *xadj, const int *adjncy, const int *vwgt,
                    const int *numflag, const int *options, int *perm, int *iperm) {
    (void)xadj, (void)adjncy, (void)vwgt, (void)options;
    identity(*n, *numflag, perm, iperm);
}

void METIS_PartGraphKway(const int *n, const int *xadj, const int *adjncy, const int *vwgt,
                         const int *adjwgt, const int *wgtflag, const int *numflag,
                         const int *nparts, const int *options, int *edgecut, int *part) {
    (void)vwgt, (void)options;
    const int base = *numflag;
    const int weighted = adjwgt != 0 && (*wgtflag == 1 || *wgtflag == 3);
    for (int i = 0; i < *n; ++i) part[i] = base + (int)((long long)i * *nparts / *n);
    int cut = 0; /* every cut edge is seen from both ends */
    for (int i = 0; i < *n; ++i)
        for (int k = xadj[i] - base; k < xadj[i + 1] - base; ++k)
            if (part[i] != part[adjncy[k] - base]) cut += weighted ? adjwgt[k] : 1;
    *edgecut = cut / 2;
}
