#pragma once

#include <cgicc/Cgicc.h>

#include <optional>
#include <string>

/// The form fields of a request, empty if missing. All others are ignored.
struct RequestFields {
  std::optional<std::string> read;   ///< without its carriage returns and line feeds
  std::optional<std::string> write;  ///< as decoded
  std::optional<std::string> value;  ///< as decoded
};

/// Looks the fields up as cgicc does: without regard to letter case, the first of a name wins, and
/// the body comes before the query string.
RequestFields readFields(const cgicc::Cgicc& request);

/// Whether the request's body is longer than CGICC_MAX_CONTENTLENGTH in the environment. Ask before
/// constructing `cgicc::Cgicc`: for such a body it throws or, in older releases, ends the process.
bool bodyExceedsLimit();

/// Whether a page of another site may have made the browser send this request, with the user's
/// password. Such a page cannot send the header "X-Requested-With". A query that begins with
/// "read=" makes any request a read, and the browser hides the answer from such a page.
bool mayBeForged();

/// Logs "ACTION by USER from ADDRESS". User and address have at most 64 bytes and no control
/// characters. If the web server gives none, they are "nobody" and "nowhere".
void logRequester(int priority, const char* action);
