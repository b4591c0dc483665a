/* A C host of the installed shared library. */
#include <stdio.h>

#include "iam/capi/iam.h"

int main(void) {
  iam_manager* manager = NULL;
  if (iam_create(NULL, &manager) != IAM_ERR_ARGUMENT || iam_last_error()[0] == '\0') return 1;
  printf("libiam %s\n", iam_version());
  return 0;
}
