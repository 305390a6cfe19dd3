/* The foundation alone. */
#include <foundation/ZEP_Foundation.h>

int main(void) {
  return ZEP_RunLoop_Run(0);
}
