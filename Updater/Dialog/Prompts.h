#pragma once

/// The run's message boxes. Each blocks until it is answered.
namespace Prompts
{
/// True when the user wants the update; a box that can't be shown counts as No.
bool AskToUpdate();
void TellToConnect();
void TellThatUpdateIsNeeded();
} // namespace Prompts
