#include "runtime/state_gate.h"

#include <gtest/gtest.h>

#include "support/raised.h"

namespace qx_test {
namespace {

enum State : uint32_t { kClosed, kOpening, kOpen, kOpenWithCalls, kClosing, kStates };

void Bring(qx::StateGate& gate, State state) {
    if (state == kClosed) {
        return;
    }
    gate.BeginOpen();
    if (state == kOpening) {
        return;
    }
    gate.EndOpen();
    if (state == kOpenWithCalls) {
        EXPECT_TRUE(gate.Enter());
        EXPECT_TRUE(gate.Enter());
        gate.Leave();
    } else if (state == kClosing) {
        gate.BeginClose();
    }
}

uint32_t CodeOf(const Status& status) {
    EXPECT_EQ(status[1], 0U);
    EXPECT_EQ(status[2], 0U);
    return status[0];
}

TEST(StateGate, WhatEachStateAllows) {
    struct Row {
        State In;
        uint32_t BeginOpen;  // the code that it raises, 0 for success
        bool Enter;
        uint32_t BeginClose;
    };
    constexpr Row kTable[] = {
        {kClosed, 0, false, 1100},          {kOpening, 1102, false, 1102}, {kOpen, 1101, true, 0},
        {kOpenWithCalls, 1101, true, 1102}, {kClosing, 1102, false, 1102},
    };
    static_assert(std::size(kTable) == kStates);
    for (const Row& row : kTable) {
        // A refused operation changes nothing, so the second attempt is refused alike.
        for (const int attempts : {1, 2}) {
            qx::StateGate opened;
            qx::StateGate entered;
            qx::StateGate closed;
            Bring(opened, row.In);
            Bring(entered, row.In);
            Bring(closed, row.In);
            for (int i = 0; i < attempts; ++i) {
                if (i == 0 || row.BeginOpen != 0) {
                    EXPECT_EQ(CodeOf(Raised([&] { opened.BeginOpen(); })), row.BeginOpen) << row.In;
                }
                EXPECT_EQ(entered.Enter(), row.Enter) << row.In;
                if (i == 0 || row.BeginClose != 0) {
                    EXPECT_EQ(CodeOf(Raised([&] { closed.BeginClose(); })), row.BeginClose) << row.In;
                }
            }
        }
    }
}

}  // namespace
}  // namespace qx_test
