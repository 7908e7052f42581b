#include "tests/selectcontext/fuzz/Player.h"

#include "tests/selectcontext/model/Machine.h"

#include <memory>
#include <string>

namespace kvmodel {

namespace {

class MachinePlayer : public Player {
public:
    bool begin(const Profile& profile, bool tracksMemory) override {
        return succeeds([&] { mSession = std::make_unique<Session>(profile, tracksMemory); });
    }
    bool perform(const Operation& operation) override {
        return succeeds([&] { machine().perform(operation); });
    }
    bool finish() override {
        return succeeds([&] {
            std::string().swap(mText);
            mSession->finish();
            mSession.reset();
        });
    }
    const char* message() const override { return mMessage.c_str(); }

    std::uint64_t number() const override { return machine().number() + (isWrong() ? 1 : 0); }
    const char* text() override {
        mText = machine().text() + (isWrong() ? "\na planted difference" : "");
        return mText.c_str();
    }
    bool mayDiffer() const override { return machine().mayDiffer(); }
    bool reset() override {
        return succeeds([&] { machine().reset(); });
    }

    long failedCalls() const override { return machine().failedCalls(); }

    void plantDifference() override { mIsPlanted = true; }

private:
    Machine& machine() const { return mSession->machine(); }

    bool isWrong() const { return mIsPlanted && machine().countOf(0) >= 3; }

    template <class Work>
    bool succeeds(const Work& work) {
        try {
            work();
            return true;
        } catch (const Mismatch& mismatch) {
            mMessage = mismatch.what;
        } catch (...) {
            mMessage = "something was thrown";
        }
        return false;
    }

    std::unique_ptr<Session> mSession;
    std::string mMessage;
    std::string mText;
    bool mIsPlanted = false;
};

} // namespace

} // namespace kvmodel

kvmodel::Player* kvFuzzPlayer() {
    static kvmodel::MachinePlayer player;
    return &player;
}
