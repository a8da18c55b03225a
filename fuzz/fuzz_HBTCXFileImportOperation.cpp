// Imports each input as a TCX file; see XMLImportFuzzing.h.

#include "XMLImportFuzzing.h"

#include "import/HBTCXFileImportOperation.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    xmlimportfuzzing::setUp("tcx");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    xmlimportfuzzing::importInput<HBTCXFileImportOperation>(bytes, size);
    return 0;
}
