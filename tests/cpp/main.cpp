#define CHECK_MAIN
#include "check.hpp"
