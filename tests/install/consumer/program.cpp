#include <cstdio>

#include <vantro/extras.h>
#include <vantro/messaging.h>
#include <vantro/platform/dictionary.h>
#include <vantro/version.h>

// Uses both libraries, and says which version it was compiled against.
int main() {
    mosk_dict *dictionary = mosk_dict_new();
    const bool made = dictionary != nullptr;
    mosk_dict_destroy(dictionary);
    vantro_free_media_nodes(nullptr, 0);
    std::puts(VANTRO_VERSION);
    return made && VANTRO_VERSION_NUMBER >= 10000 ? 0 : 1;
}
