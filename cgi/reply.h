#pragma once

#include <string>

/// Each writes a bare status line and an empty line to standard output, and flushes. The line is a
/// raw HTTP status line, not a CGI "Status:" field.
void writeBadRequest();
void writeInternalServerError();

/// Writes a status reply with the line `reason` as its body.
void writeForbidden(const char* reason);

/// Writes the header of a JSON reply to standard output; the document follows directly.
void writeJsonHeader();

/// A copy of `text` for the inside of a JSON string literal, without the quotation marks around it.
/// Escapes the quotation mark, backslash, slash and \b \f \n \r \t. Copies every other byte, also
/// other control characters.
std::string jsonEscape(const std::string& text);

/// Writes `before` as it is, then a member of a JSON object, "NAME": "VALUE", both strings escaped.
void writeJsonMember(const char* before, const std::string& name, const std::string& value);
