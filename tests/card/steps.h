/**
 * Where this program is on its way through the SDK: each call of it and each line that it puts into a file of
 * its own, told right before it happens.
 *
 * Register accesses and polls are told by RegisterTraffic and Polls, the other calls and the lines here.
 */
#ifndef KOVA_TESTS_CARD_STEPS_H
#define KOVA_TESTS_CARD_STEPS_H

#include <functional>

namespace kova::test {

enum class Step {
    kCall,    // that opens something
    kLock,    // of the core: not held yet
    kUnlock,  // still held, the register is accessed
    kLine,    // written, not yet in the file
};

class Steps {
 public:
    /** Called before each step; an empty function ends that. */
    static void before_each(std::function<void(Step)> action);
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_STEPS_H
