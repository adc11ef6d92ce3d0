// Python.h and nothing else: every file of the module includes it first, with the same settings.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
