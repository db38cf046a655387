#pragma once

class CNoncopyable {
protected:
    CNoncopyable() = default;
    ~CNoncopyable() = default;

public:
    CNoncopyable(const CNoncopyable&) = delete;
    CNoncopyable& operator=(const CNoncopyable&) = delete;
};
