// Saves a variable (typically a table of replaceable system calls) and puts the saved value back
// when the scope ends, so a test that injects faults through it cannot leak them into the next.
#pragma once

namespace kxtest {

template <typename T>
class ScopedRestore {
public:
    explicit ScopedRestore(T& variable) : variable_(variable), saved_(variable) {}
    ~ScopedRestore() { variable_ = saved_; }
    ScopedRestore(const ScopedRestore&) = delete;
    ScopedRestore& operator=(const ScopedRestore&) = delete;

    // The live variable, for the test to change.
    T& operator*() { return variable_; }

private:
    T& variable_;
    T saved_;
};

}  // namespace kxtest
