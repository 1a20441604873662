#pragma once

#include "model/OpenMessage.h"

#include <QVariantMap>
#include <string>

/// What the reader shows of an open message, worded for the view. Pure.
namespace qs::ReaderContent {

/// The body as a document for the web view: the HTML prepared for display when there is HTML,
/// else the text as a document, else the document of "(This message has no text.)". `isHtml`
/// says which: only an HTML document needs the blocking web view.
std::string bodyDocument(const ParsedMessage& parsed, bool& isHtml);

/// The header, trust line, notes, catalogue card and attachments as a map for the view.
/// `imagesAllowed`: the user asked for this message's pictures in this run.
QVariantMap describe(const OpenMessage& message, bool imagesAllowed);

/// The title of the link-warning note: "1 link doesn’t go where it says", "3 links don’t go
/// where they say".
QString linkWarningTitle(qlonglong count);

/// The trackers chip's detail: the named services, or why unnamed ones are hidden.
QString trackerDetail(const std::vector<std::string>& hosts);

} // namespace qs::ReaderContent
