#pragma once

#include <toolkit/math/KrVector.h>
#include <toolkit/xml/KrXmlVectorType.h>

/// A list of vectors, three contiguous doubles each.
using KrXmlVectorVector = KrXmlVectorType<KrVector>;
