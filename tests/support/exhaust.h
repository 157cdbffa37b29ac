// Exhausted memory: makes one allocation fail, and counts what is alive.
#ifndef TESTS_SUPPORT_EXHAUST_H
#define TESTS_SUPPORT_EXHAUST_H

// The sanitizers have allocators of their own in the way; the leaks that AddressSanitizer finds are counted here
// otherwise.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TESTS_EXHAUST

// While it lives, the allocation of that number (from 0) of this thread fails; a negative number lets all pass.
class Exhaust {
public:
    explicit Exhaust(long nFailing);
    ~Exhaust();
    // Whether that many were asked for.
    static bool HasFailed();
    // Blocks that are allocated now.
    static long Live();
};
#endif

#endif
