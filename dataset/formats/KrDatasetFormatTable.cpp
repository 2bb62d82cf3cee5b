#include <dataset/KrDatasetFormat.h>
#include <dataset/formats/KrDatasetBop.h>
#include <dataset/formats/KrDatasetCoco.h>
#include <dataset/formats/KrDatasetFolders.h>
#include <dataset/formats/KrDatasetWebDataset.h>

namespace
{

/// All there are, in the order in which they are told. A further format is a further line here.
const std::vector<const KrDatasetFormat*>& formats()
{
    static const KrDatasetFolders folders;
    static const KrDatasetWebDataset webDataset;
    static const KrDatasetBop bop;
    static const KrDatasetCoco coco;
    static const std::vector<const KrDatasetFormat*> all = {&folders, &webDataset, &bop, &coco};
    return all;
}

} // namespace

std::vector<std::string> KrDatasetFormat::names()
{
    std::vector<std::string> result;
    for (const KrDatasetFormat* format : formats()) {
        result.push_back(format->name());
    }
    return result;
}

const KrDatasetFormat* KrDatasetFormat::find(const std::string& name)
{
    for (const KrDatasetFormat* format : formats()) {
        if (format->name() == name) {
            return format;
        }
    }
    return nullptr;
}
