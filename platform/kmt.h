// Portable runtime of the gateway (libkmt): locking, sleeping and bounded string handling.
//
// Requirements on an implementation:
// - every function is safe to call from any thread;
// - KMT_Mutex with flag 0 is a plain mutex, with flag 1 a recursive one;
// - the string functions never read or write past the counts they are given.
#pragma once

class KMT_Mutex {
public:
    explicit KMT_Mutex(int flag);
    ~KMT_Mutex();
    KMT_Mutex(const KMT_Mutex&) = delete;
    KMT_Mutex& operator=(const KMT_Mutex&) = delete;

    void Lock();
    void Unlock();

private:
    struct Impl;
    Impl* impl_;
};

// Scoped lock: locks on construction; Release() unlocks if still held and forgets the mutex.
class KMT_Guard {
public:
    explicit KMT_Guard(KMT_Mutex* mutex);
    ~KMT_Guard();
    KMT_Guard(const KMT_Guard&) = delete;
    KMT_Guard& operator=(const KMT_Guard&) = delete;

    void Release();

private:
    KMT_Mutex* mutex_;
};

// Copies at most n bytes, stops after the NUL, never writes past dst[n-1].
char* KMT_Strncpy(char* dst, const char* src, int n);
// Compares at most n bytes; 0 when equal.
int KMT_Strncmp(const char* a, const char* b, int n);
// Finds part in text, exactly or ignoring ASCII case; null when absent.
const char* KMT_Strstr(const char* text, const char* part);
const char* KMT_Strcasestr(const char* text, const char* part);
void KMT_Sleep(int ms);
