#include "support/fake_time.h"

namespace qx_test {

class FakeTime::Clock final : public qx::ClockService {
  public:
    explicit Clock(FakeTime& owner) : owner_(owner) {}

    // Far from zero: only differences mean anything.
    uint64_t MonotonicMilliseconds() override { return (uint64_t{1} << 40) + owner_.Elapsed(); }

  private:
    FakeTime& owner_;
};

class FakeTime::Threads final : public qx::ThreadService {
  public:
    explicit Threads(FakeTime& owner) : owner_(owner) {}

    qx::OsThread* Start(void (*body)(void*), void* argument) override {
        return owner_.real_.Threads->Start(body, argument);
    }
    void Join(qx::OsThread* thread) override { owner_.real_.Threads->Join(thread); }
    void Yield() override { owner_.real_.Threads->Yield(); }
    void Sleep(uint32_t milliseconds) override { owner_.Sleep(milliseconds); }

  private:
    FakeTime& owner_;
};

FakeTime::FakeTime()
    : real_(qx::thePlatform), clock_(std::make_unique<Clock>(*this)), threads_(std::make_unique<Threads>(*this)) {
    qx::thePlatform.Clock = clock_.get();
    qx::thePlatform.Threads = threads_.get();
}

FakeTime::~FakeTime() {
    qx::thePlatform = real_;
}

void FakeTime::Sleep(uint32_t milliseconds) {
    elapsed_ += milliseconds;
    ++sleeps_;
    if (DuringSleep) {
        DuringSleep();
    }
}

}  // namespace qx_test
