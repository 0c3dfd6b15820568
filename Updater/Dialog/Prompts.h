#pragma once

class CLanguage;

/// The run's message boxes, in its language. Each blocks until it is answered.
namespace Prompts
{
/// True when the user wants the update; a box that can't be shown counts as No.
bool AskToUpdate(const CLanguage& language);
void TellToConnect(const CLanguage& language);
void TellThatUpdateIsNeeded(const CLanguage& language);
} // namespace Prompts
