/* Opens and destroys an input stream. Without an X display, the XTest backend makes no handle; the stream exists. */
#include <dlfcn.h>
#include <stdio.h>

#include "ZuInputStream.h"

typedef ZustResult (*Create)(ZustStream*, ZuisHandle*, ZuisInputConfig*);
typedef ZustResult (*Destroy)(ZuisHandle*);

int main(void)
{
    ZuisInputConfig config = {NULL};
    ZustStream stream = NULL;
    ZuisHandle handle = NULL;
    ZustResult result;
#ifdef LINKED
    const Create create = zuisCreateZustStream;
    const Destroy destroy = zuisDestroyHandle;
#else
    void* const library = dlopen("libInputStreamShared.so", RTLD_NOW | RTLD_LOCAL);
    Create create;
    Destroy destroy;
    if (!library)
    {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    *(void**)&create = dlsym(library, "zuisCreateZustStream");
    *(void**)&destroy = dlsym(library, "zuisDestroyHandle");
    if (!create || !destroy)
        return 2;
#endif
    result = create(&stream, &handle, &config);
    printf("result 0x%08x, stream %s, handle %s\n", (unsigned int)result, stream ? "yes" : "no", handle ? "yes" : "no");
    destroy(&handle);
    return 0;
}
