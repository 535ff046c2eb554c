#include "tests/support/module_test.h"
