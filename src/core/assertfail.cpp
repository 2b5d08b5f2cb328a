#include "core/assertfail.h"

#include <stdio.h>
#include <stdlib.h>

void AssertFail(const char* expression, const char* source, int line, const char* function) {
  fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", source, line, function, expression);
  fflush(stderr);
  abort();
}
