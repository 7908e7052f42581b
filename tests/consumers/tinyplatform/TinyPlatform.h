// A drawing database that knows nothing but numbers.
#pragma once

class GxDbStub {
public:
    unsigned number; // two stubs of one number name the same object; 0 is no object
};

namespace tinyplatform {

// Blocks that _kvMalloc gave out and that are not back yet.
__attribute__((visibility("default"))) long blocksInUse();

} // namespace tinyplatform
