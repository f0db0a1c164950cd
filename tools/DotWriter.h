#ifndef DOTWRITER_H
#define DOTWRITER_H

// Graphviz pictures of a restored model for mcinspect --dot.

#include <string>

class MCObject;

/// Writes a tree as Graphviz DOT text: the class diagram of a class model's Model, the owner tree and its
/// references for any other root. The same tree gives the same bytes; the tree is only read.
class DotWriter {
public:
    /// The graph of the tree under `root`: a class diagram when `root` is a class model's Model, else its
    /// owner tree; an empty graph for a null `root`.
    static std::string Write(MCObject* root);

    /// The class diagram of `model`: packages as clusters, classes, data types and enumerations as record
    /// nodes, generalizations and associations as edges. Other objects and edges to classes outside the
    /// tree are left out.
    static std::string ClassDiagram(MCObject* model);

    /// The owner tree under `root`, ownership as solid edges, every bound reference as a dashed edge
    /// labelled with its property's name; a target outside the tree becomes a dashed node.
    static std::string OwnerTree(MCObject* root);

    /// `text` as the inside of a DOT quoted string: quotes and backslashes escaped, line breaks as \n,
    /// other control characters and bytes that are no UTF-8 as blanks and '?'; with `record` also the
    /// characters that structure a record label (`{}|<>`).
    static std::string Escape(const std::string& text, bool record);
};

#endif
