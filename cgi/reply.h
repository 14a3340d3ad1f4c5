#pragma once

#include <string>

/// Each writes a bare status line and an empty line to standard output, and flushes. The line is a
/// raw HTTP status line, not a CGI "Status:" field.
void writeBadRequest();
void writeInternalServerError();

/// Writes a status reply that says in its body which header is missing.
void writeForbidden();

/// Writes the header of a JSON reply to standard output; the document follows directly.
void writeJsonHeader();

/// A copy of `text` for the inside of a JSON string literal, without the quotation marks around it.
/// Escapes the quotation mark, backslash, slash, and the control characters \b \f \n \r \t; every
/// other byte, other control characters included, is copied.
std::string jsonEscape(const std::string& text);

/// A member of a JSON object, both strings escaped: "name": "value".
std::string jsonMember(const std::string& name, const std::string& value);
