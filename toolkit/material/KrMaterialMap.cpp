#include <toolkit/material/KrMaterialMap.h>

// The templates are made here once; the header declares them as extern.
template class KrXmlObjectOf<KrMaterialMap, KrXmlObject>;
template class KrXmlMapType<KrXmlBasicType<std::string>, KrDataMap>;
