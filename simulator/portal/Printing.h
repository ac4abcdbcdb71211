// The portal's answers as the administrator sees them on standard output.
#pragma once

#include <string>

#include "platform/Json.h"

namespace portal {

/// The record's member as text that is safe to print; "-" for what is not there, in whatever kind
/// of answer.
std::string Cell(const Json& record, const char* key);

/// Each prints an answer of a known shape; what a record lacks is shown as "-".
void PrintTerminals(const Json& body);
void PrintTerminal(const Json& body);
void PrintCodes(const Json& body);
void PrintRecord(const Json& body);
void PrintClaimed(const Json& body);
void PrintPhotos(const Json& body);
void PrintNoBranding(const Json& body);
void PrintAddedPhoto(const Json& body);
void PrintKnownPhoto(const Json& body);
void PrintNothing(const Json& body);
void PrintDone(const Json& body);

}  // namespace portal
