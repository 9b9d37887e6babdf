// The version of the library at run time.
#include <vantro/extras.h>
#include <vantro/version.h>

const char *vantro_version(void) {
    return VANTRO_VERSION;
}

int vantro_version_number(void) {
    return VANTRO_VERSION_NUMBER;
}
