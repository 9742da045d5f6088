// The two merges of an element tree into another. syncxml's brings settings into a loaded document
// and looks at what it stores; restore's fills the tree of an exchange file as its readers expect
// it, attributes included. Their rules differ on purpose: clients know both.
#pragma once

#include <tinyxml.h>

#include <cstdint>

#include "store/document_set.h"

namespace veltrancord {

// Each element of the tree `from` that has text gives it to the element at the same place in
// `into`, a document: `from` itself stands for the root element of its name. Elements are matched
// by their names as stored, the first of a name; those that a text needs are created, each as the
// last child of its parent. Elements without text, attributes, and everything that only `into` has
// are left alone.
//
// A secret that is already in "enc:" form is taken as it stands, so that its plain value stays what
// it was; another one is brought into that form.
//
// What cannot be stored is left out: a secret whose form would be too long, a text with which the
// saved document could not be read whole again (xml/syntax.h). One line on standard error names the
// path of each. Only store/change.h calls this.
//
// Return: whether nothing was left out.
[[nodiscard]] bool MergeSubtree(TiXmlNode& into, const TiXmlElement& from);

// Restore's merge: merges the element tree `from` into `into`: texts of `from` win, elements only
// in `into` stay. Null arguments do nothing. Return: 0.
int32_t MergeXmlNode(TiXmlNode* into, TiXmlNode* from);

// Merges the first child node of the record's document, when that is an element. Return: 0.
int32_t MergeXmlDoc(XmlDocNode* node, TiXmlNode* into);

}  // namespace veltrancord
