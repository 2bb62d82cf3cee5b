#pragma once

#include <toolkit/material/KrDataMap.h>
#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlMapType.h>

#include <string>

/// Materials (and other data maps) by name.
using KrMaterialMap = KrXmlMapType<KrXmlBasicType<std::string>, KrDataMap>;
// Compiled once, in the library.
extern template class KrXmlObjectOf<KrMaterialMap, KrXmlObject>;
extern template class KrXmlMapType<KrXmlBasicType<std::string>, KrDataMap>;
