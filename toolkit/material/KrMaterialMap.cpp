#include <toolkit/material/KrMaterialMap.h>

template class KrXmlObjectOf<KrMaterialMap, KrXmlObject>;
template class KrXmlMapType<KrXmlBasicType<std::string>, KrDataMap>;
