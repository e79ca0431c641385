// A second process: locks and sharing modes have to work between processes, too.
#pragma once

#include <functional>
#include <sys/types.h>

namespace qx_test {

// Runs a part of a test in a process of its own, which takes turns with the test. To be made while the test has no
// other threads, so before it starts the library.
class OtherProcess {
  public:
    // What the other process uses to take turns.
    class Turn {
      public:
        // Lets the test go on and waits until it does so, too.
        void HandOver();

      private:
        friend class OtherProcess;
        int read_ = -1;
        int write_ = -1;
    };

    // Starts it and returns when it first hands over, or has ended.
    explicit OtherProcess(const std::function<void(Turn& turn)>& body);
    // Ends it, whatever it is doing.
    ~OtherProcess();
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    // Lets it go on until it hands over again. False when it has ended.
    bool Continue();

    // The same without waiting, as a thing to do before Finish or Kill.
    void LetGo();

    // Kills it, as a crash would, and returns when it is gone.
    void Kill();

    // Lets it go on to its end. True when its body returned and met no failure of an expectation.
    bool Finish();

  private:
    void Reap();

    Turn here_;
    pid_t process_ = -1;
    int status_ = -1;
};

}  // namespace qx_test
