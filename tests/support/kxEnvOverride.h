// Environment settings for the length of one scope.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace kxtest {

// Sets (or, with nullptr, removes) one environment variable and puts the old state back.
class EnvOverride {
public:
    EnvOverride(const char* name, const char* value) : name_(name) {
        if (const char* old = getenv(name)) old_ = old;
        Set(value);
    }
    ~EnvOverride() { Set(old_ ? old_->c_str() : nullptr); }
    EnvOverride(const EnvOverride&) = delete;
    EnvOverride& operator=(const EnvOverride&) = delete;

private:
    void Set(const char* value) {
        value ? setenv(name_.c_str(), value, 1) : unsetenv(name_.c_str());
    }
    std::string name_;
    std::optional<std::string> old_;
};

// TZ for one scope; the C library re-reads it on both ends.
class ZoneOverride {
public:
    explicit ZoneOverride(const char* zone) : tz_("TZ", zone) { tzset(); }

private:
    // Destroyed after tz_ has put the old value back.
    struct Reread {
        ~Reread() { tzset(); }
    } reread_;
    EnvOverride tz_;
};

}  // namespace kxtest
