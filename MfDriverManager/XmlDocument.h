#pragma once

class TiXmlDocument;

/// Reads the document from its file. A directory, and a file for which the library throws, is a file that
/// cannot be loaded, and the document's error description says so.
bool loadXmlDocument(TiXmlDocument& document);
