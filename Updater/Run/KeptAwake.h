#pragma once

/// While it lives, Windows doesn't put an unattended machine to sleep: a download or an installation in the
/// middle of it would be taken for one that has stalled when the machine wakes up. (A user can still do so.)
/// Made and destroyed on the same thread, whose state it is; one at a time.
class CKeptAwake
{
public:
    CKeptAwake() noexcept;
    CKeptAwake(const CKeptAwake&) = delete;
    CKeptAwake& operator=(const CKeptAwake&) = delete;
    ~CKeptAwake();
};
