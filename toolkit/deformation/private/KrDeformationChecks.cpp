#include <toolkit/deformation/private/KrDeformationChecks.h>

#include <toolkit/foundation/KrPrint.h>

// One form for all files of the class, under its name.
void KrDeformationChecks::warn(const char* method, const std::string& reason)
{
    Kr::Print::instance()->write(Kr::Print::Warning, "KrDeformationPhysicalExtent::%s - %s; nothing is changed.\n",
                                 method, reason.c_str());
}

bool KrDeformationChecks::areFinite(const std::vector<KrVector>& vectors)
{
    return std::all_of(vectors.begin(), vectors.end(), [](const KrVector& vector) { return vector.isFinite(); });
}
