// Environment variables for the tests: set for the life of an object, the
// earlier value restored afterwards.
#pragma once

#include <cstdlib>
#include <string>

namespace fakes {

inline void SetEnv(const char* name, const char* value) {
#if defined(_WIN32)
    _putenv_s(name, value ? value : "");
#else
    if (value) setenv(name, value, 1);
    else unsetenv(name);
#endif
}

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        const char* prev = std::getenv(name);
        had_ = prev != nullptr;
        if (had_) previous_ = prev;
        SetEnv(name, value.c_str());
    }
    ~ScopedEnv() { SetEnv(name_.c_str(), had_ ? previous_.c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::string previous_;
    bool had_ = false;
};

// Writes a text file (a script for a fake library), replacing it.
bool WriteTextFile(const std::string& path, const std::string& text);
std::string ReadTextFile(const std::string& path);
// A fresh path in the temporary folder.
std::string TempPath(const std::string& stem);

}  // namespace fakes
