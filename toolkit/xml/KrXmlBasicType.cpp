#include <toolkit/xml/KrXmlBasicType.h>

// Made here once, not in every file that includes the header.
template class KrXmlObjectOf<KrXmlBasicType<bool>, KrXmlObject>;
template class KrXmlBasicType<bool>;
template class KrXmlObjectOf<KrXmlBasicType<double>, KrXmlObject>;
template class KrXmlBasicType<double>;
template class KrXmlObjectOf<KrXmlBasicType<std::string>, KrXmlObject>;
template class KrXmlBasicType<std::string>;
template class KrXmlObjectOf<KrXmlBasicType<unsigned int>, KrXmlObject>;
template class KrXmlBasicType<unsigned int>;
