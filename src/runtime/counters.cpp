#include "runtime/counters.h"

namespace qx {

constinit CounterSet theProcessCounters;

void CounterLevels::EnterSessionFile() const {
    for (CounterSet* level : {&theProcessCounters, Session, Volume, File}) {
        if (level != nullptr) {
            level->Enter(Counter::ActiveSessionFiles, Counter::PeakActiveSessionFiles);
            level->Increment(Counter::AddSessionFiles);
        }
    }
}

void CounterLevels::LeaveSessionFile() const {
    for (CounterSet* level : {&theProcessCounters, Session, Volume, File}) {
        if (level != nullptr) {
            level->Leave(Counter::ActiveSessionFiles);
            level->Increment(Counter::RemoveSessionFiles);
        }
    }
}

}  // namespace qx
