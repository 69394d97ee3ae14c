#pragma once

#include <tinyxml.h>

#include <algorithm>

/// How deep the elements of a document nest; the library itself recurses that deep.
inline int nestingDepth(const TiXmlDocument& document) {
    int deepest = 0;
    int depth = 0;
    const TiXmlNode* pNode = document.FirstChild();
    while (pNode) {
        if (pNode->ToElement())
            deepest = std::max(deepest, depth + 1);
        if (pNode->FirstChild()) {
            pNode = pNode->FirstChild();
            ++depth;
            continue;
        }
        while (pNode && !pNode->NextSibling()) {
            pNode = pNode->Parent();
            if (pNode == &document)
                return deepest;
            --depth;
        }
        if (pNode)
            pNode = pNode->NextSibling();
    }
    return deepest;
}
