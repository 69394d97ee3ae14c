#pragma once

class TiXmlDocument;

/// Reads the document from its file. The library throws on some paths that are no files (a directory); that,
/// too, is a file that cannot be loaded, and the document's error description says so.
bool loadXmlDocument(TiXmlDocument& document);
