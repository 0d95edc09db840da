/* Quorvane.h included first and alone, as a Host program in C or C++ includes it. */
#include "Quorvane.h"

#define CHECK(name, condition) typedef char name[(condition) ? 1 : -1]

/* The element types are the Host's numeric type codes. */
CHECK(signedElementTypes,
      kQuorvaneElementI8 == 1 && kQuorvaneElementI16 == 2 && kQuorvaneElementI32 == 3 && kQuorvaneElementI64 == 4);
CHECK(unsignedElementTypes,
      kQuorvaneElementU8 == 5 && kQuorvaneElementU16 == 6 && kQuorvaneElementU32 == 7 && kQuorvaneElementU64 == 8);

#if defined(__cplusplus) && __cplusplus >= 201103L
static_assert(noexcept(Quorvane_Close(0, 0)) && noexcept(Quorvane_ReleaseResourceIndex(0)),
              "from C++11 on, the exports say that they never throw");
#endif
