#include "selectcontext/GxapSelectSetListManager.h"

#include <utility>

GxapSSListSmartPtr* GxapSelectSetListManager::s_smartPtrSSList = nullptr;
KvLocker GxapSelectSetListManager::s_locker;

GxapSSListSmartPtr* GxapSelectSetListManager::newInstance() {
    if (!s_smartPtrSSList)
        s_smartPtrSSList = new GxapSSListSmartPtr;
    return s_smartPtrSSList;
}

GxapSSListSmartPtr* GxapSelectSetListManager::getInstance() {
    return newInstance();
}

void GxapSelectSetListManager::destroy() {
    delete std::exchange(s_smartPtrSSList, nullptr);
}
