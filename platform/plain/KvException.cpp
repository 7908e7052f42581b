// The exceptions of libKvOsBase, for every platform of this tree.
#include "platform/KvOsBase.h"

KvException::~KvException() = default;

KvErrorStatus::KvErrorStatus(int status, const wchar_t* file, int line)
    : mFile(file), mStatus(status), mLine(line) {}

KvErrorStatus::~KvErrorStatus() = default;

int KvErrorStatus::status() const noexcept {
    return mStatus;
}

const wchar_t* KvErrorStatus::file() const noexcept {
    return mFile;
}

int KvErrorStatus::line() const noexcept {
    return mLine;
}

KvExceptionWithMsg::KvExceptionWithMsg(const wchar_t* file, int line, const wchar_t* message)
    : mFile(file), mMessage(message), mLine(line) {}

KvExceptionWithMsg::~KvExceptionWithMsg() = default;

const wchar_t* KvExceptionWithMsg::file() const noexcept {
    return mFile;
}

int KvExceptionWithMsg::line() const noexcept {
    return mLine;
}

const wchar_t* KvExceptionWithMsg::message() const noexcept {
    return mMessage;
}
