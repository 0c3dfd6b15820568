#pragma once

/// Goes through the dial-up phone books once. Nothing is made of the answer: the call only brings the
/// dial-up layer up before the connection state is asked for. A system without it is no matter.
void EnumerateDialUpEntries() noexcept;
