/* QuorvaneStatus.h included first and alone, and used as a C or C++ program would use it. */
#include "QuorvaneStatus.h"

/* A table made from the list, with the comma C89 allows after an initializer's last element. */
#define ROW(name, value, meaning) {value, #name, meaning},
static const struct {
    int value;
    const char* name;
    const char* meaning;
} rows[] = {QUORVANE_STATUS_LIST(ROW)};
#undef ROW

const char* statusMeaning(int status) {
    unsigned i;
    for (i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        if (rows[i].value == status) return rows[i].meaning;
    }
    return 0;
}

/* One case per code: the compiler refuses two codes of the same value. */
const char* statusName(int status) {
#define NAME_CASE(name, value, meaning) \
    case name:                          \
        return #name;
    switch (status) {
        QUORVANE_STATUS_LIST(NAME_CASE)
        default:
            return 0;
    }
#undef NAME_CASE
}
