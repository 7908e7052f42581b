// A plug-in on the tiny platform.
#include "Plugin.h"
#include "TinyPlatform.h"

int runPlugin() {
    GxDbStub door{1};
    GxDbStub desk{2};
    return useLibrary(GxDbObjectId(&door), GxDbObjectId(&desk));
}
