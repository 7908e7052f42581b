// A drawing database whose objects are only numbers.
#pragma once

class GxDbStub {
public:
    unsigned number; // stubs with the same number name the same object; 0 is no object
};

namespace tinyplatform {

// Returns the number of blocks of _kvMalloc that are not freed yet.
__attribute__((visibility("default"))) long blocksInUse();

} // namespace tinyplatform
