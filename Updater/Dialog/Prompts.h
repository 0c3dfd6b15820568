#pragma once

class CLanguage;

/// The run's message boxes, in its language. Each blocks until it is answered, stays above all other windows
/// and keeps the keyboard.
namespace Prompts
{
/// Whether one waits for its answer. Any thread.
bool IsOpen() noexcept;
/// True when the user wants the update; a box that can't be shown counts as No.
bool AskToUpdate(const CLanguage& language);
void TellToConnect(const CLanguage& language);
void TellThatUpdateIsNeeded(const CLanguage& language);
} // namespace Prompts
