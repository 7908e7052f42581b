#include "tests/support/Thrown.h"

#include "platform/inmemory/InMemoryOsBase.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace kvtest {

namespace {

constexpr const wchar_t* kNoFile = L"\"\"";

// Counts entries that the crash recorder's log gets after the construction of the object. Older entries do
// not count: a new exception may have the address of a deleted one.
//
// Invariant: mBefore is the length of the log at the construction.
//
// Thread safety: none.
class NewRecords {
public:
    NewRecords() : mBefore(kvinmemory::recordedExceptions().size()) {}

    long count(const KvException* exception) const {
        const auto log = kvinmemory::recordedExceptions();
        const auto first = log.begin() + static_cast<std::ptrdiff_t>(std::min(mBefore, log.size()));
        return std::count_if(first, log.end(), [exception](const kvinmemory::RecordedException& record) {
            return record.exception == exception;
        });
    }

private:
    std::size_t mBefore;
};

template <class E>
void expectRaised(const E& exception, const NewRecords& records) {
    EXPECT_STREQ(exception.file(), kNoFile);
    EXPECT_EQ(exception.line(), 0);
    if (!kvinmemory::isRecordingExceptions())
        return;
    EXPECT_EQ(records.count(&exception), 1) << "the crash recorder is shown an exception once";
}

} // namespace

void expectStatus(const std::function<void()>& f, int status, const char* file, int line) {
    const ::testing::ScopedTrace trace(file, line, "expected a KvErrorStatus");
    const NewRecords records;
    const auto exception = thrown<KvErrorStatus>(f);
    if (exception == nullptr)
        return;
    EXPECT_EQ(exception->status(), status);
    expectRaised(*exception, records);
}

void expectMessage(const std::function<void()>& f, const wchar_t* message, const char* file, int line) {
    const ::testing::ScopedTrace trace(file, line, "expected a KvExceptionWithMsg");
    const NewRecords records;
    const auto exception = thrown<KvExceptionWithMsg>(f);
    if (exception == nullptr)
        return;
    EXPECT_STREQ(exception->message(), message);
    expectRaised(*exception, records);
}

} // namespace kvtest
