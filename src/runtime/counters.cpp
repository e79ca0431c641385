#include "runtime/counters.h"

namespace qx {

constinit CounterSet theProcessCounters;

namespace {

// The counters that add up, and those that do not.
template <class Body>
void ForEachCounter(bool addsUp, Body&& body) {
    for (size_t i = 0; i < kCounterCount; ++i) {
        if (const auto counter = static_cast<Counter>(i); AddsUp(counter) == addsUp) {
            body(counter);
        }
    }
}

}  // namespace

CounterSet::~CounterSet() {
    for (Place& place : places_) {
        if (place.Above == nullptr) {
            continue;
        }
        ForEachCounter(true, [&](Counter counter) {
            place.Above->At(counter).fetch_add(Own(counter), std::memory_order_relaxed);
        });
        *place.Link = place.Next;
        if (place.Next != nullptr) {
            place.Next->Link = place.Link;
        }
    }
}

void CounterSet::PutBelow(CounterSet& above) {
    Place& place = places_[0].Above == nullptr ? places_[0] : places_[1];
    place = {this, &above, above.below_, &above.below_};
    if (place.Next != nullptr) {
        place.Next->Link = &place.Next;
    }
    above.below_ = &place;
}

CounterValues CounterSet::Values() const {
    CounterValues values;
    ForEachCounter(false, [&](Counter counter) { values[counter] = Own(counter); });
    AddTo(values);
    return values;
}

void CounterSet::AddTo(CounterValues& values) const {
    ForEachCounter(true, [&](Counter counter) { values[counter] += Own(counter); });
    for (const Place* place = below_; place != nullptr; place = place->Next) {
        place->Set->AddTo(values);
    }
}

void CounterLevels::CountForSession(Counter counter) const {
    theProcessCounters.Increment(counter);
    Session->Increment(counter);
}

void CounterLevels::CountEverywhere(Counter counter) const {
    for (CounterSet* level : {&theProcessCounters, Session, Volume, File, Handle}) {
        if (level != nullptr) {
            level->Increment(counter);
        }
    }
}

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
