// Imports each input as a GPX file; see XMLImportFuzzing.h.

#include "XMLImportFuzzing.h"

#include "import/HBGPXFileImportOperation.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    xmlimportfuzzing::setUp("gpx");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    xmlimportfuzzing::importInput<HBGPXFileImportOperation>(bytes, size);
    return 0;
}
