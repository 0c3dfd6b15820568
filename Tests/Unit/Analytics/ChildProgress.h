#pragma once

/// What a child tells in shared memory, so that it is known whenever the child is ended.
struct ChildProgress
{
    /// Records whose appending has begun, and those that are in the queue.
    long Begun;
    long Done;
};
