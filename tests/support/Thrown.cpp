#include "tests/support/Thrown.h"

#include "platform/inmemory/InMemoryOsBase.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace kvtest {

namespace {

constexpr const wchar_t* kNoFile = L"\"\"";

// Counts from the moment of its construction, since an exception may live where an earlier one was deleted.
class RecorderWatch {
public:
    RecorderWatch() : mBefore(kvinmemory::recordedExceptions().size()) {}

    long timesSeen(const KvException* exception) const {
        const auto records = kvinmemory::recordedExceptions();
        const auto first = records.begin() + static_cast<std::ptrdiff_t>(std::min(mBefore, records.size()));
        return std::count_if(first, records.end(), [exception](const kvinmemory::RecordedException& record) {
            return record.exception == exception;
        });
    }

private:
    std::size_t mBefore;
};

template <class E>
void expectRaisedTheOneWay(const E& exception, const RecorderWatch& watch) {
    EXPECT_STREQ(exception.file(), kNoFile);
    EXPECT_EQ(exception.line(), 0);
    if (!kvinmemory::isRecordingExceptions())
        return;
    EXPECT_EQ(watch.timesSeen(&exception), 1) << "the crash recorder is shown an exception once";
}

} // namespace

void expectStatus(const std::function<void()>& f, int status, const char* file, int line) {
    const ::testing::ScopedTrace trace(file, line, "expected a KvErrorStatus");
    const RecorderWatch watch;
    const auto exception = thrown<KvErrorStatus>(f);
    if (exception == nullptr)
        return;
    EXPECT_EQ(exception->status(), status);
    expectRaisedTheOneWay(*exception, watch);
}

void expectMessage(const std::function<void()>& f, const wchar_t* message, const char* file, int line) {
    const ::testing::ScopedTrace trace(file, line, "expected a KvExceptionWithMsg");
    const RecorderWatch watch;
    const auto exception = thrown<KvExceptionWithMsg>(f);
    if (exception == nullptr)
        return;
    EXPECT_STREQ(exception->message(), message);
    expectRaisedTheOneWay(*exception, watch);
}

} // namespace kvtest
