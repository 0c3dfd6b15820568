#pragma once

/// COM on the calling thread for the time of a scope, as its single-threaded kind. Interface pointers must be
/// let go before.
class CCOMInitializer
{
public:
    /// Throws CExitCodeException 1280, for example where the thread already uses COM of the other kind.
    CCOMInitializer();
    CCOMInitializer(const CCOMInitializer&) = delete;
    CCOMInitializer& operator=(const CCOMInitializer&) = delete;
    ~CCOMInitializer();
};
