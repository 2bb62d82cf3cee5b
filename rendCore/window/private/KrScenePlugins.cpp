#include <rendCore/window/private/KrScenePlugins.h>

#include <osgDB/Callbacks>
#include <osgDB/FileNameUtils>
#include <osgDB/Registry>

#include <filesystem>
#include <mutex>
#include <string>

namespace
{

namespace fs = std::filesystem;

/// A name that is never there. With an empty one the library would look in the current folder.
constexpr const char* kNowhere = "/dev/null/";

class AbsoluteFolders : public osgDB::FindFileCallback
{
public:
    explicit AbsoluteFolders(osgDB::FindFileCallback* before)
        : m_before(before)
    {
    }
    std::string findDataFile(const std::string& name, const osgDB::Options* options,
                             osgDB::CaseSensitivity sensitivity) override
    {
        // Data files are the client's business.
        return m_before ? m_before->findDataFile(name, options, sensitivity)
                        : osgDB::FindFileCallback::findDataFile(name, options, sensitivity);
    }
    std::string findLibraryFile(const std::string& name, const osgDB::Options* options,
                                osgDB::CaseSensitivity sensitivity) override
    {
        const std::string found = m_before ? m_before->findLibraryFile(name, options, sensitivity) : name;
        // What the client's own look-up names by a whole path is taken at its word.
        if (fs::path(found).is_absolute()) {
            return found;
        }
        // The folders of the list are those of plugins, or those in which the plugins have one of their own.
        const std::string simple = osgDB::getSimpleFileName(name);
        for (const std::string& folder : osgDB::Registry::instance()->getLibraryFilePathList()) {
            for (const std::string& file : {name, simple}) {
                const fs::path candidate = fs::path(folder) / file;
                std::error_code error;
                // A relative folder in the list would mean another one wherever the program runs.
                if (fs::path(folder).is_absolute() && fs::is_regular_file(candidate, error)) {
                    return candidate.string();
                }
            }
        }
        return kNowhere + simple;
    }

private:
    osg::ref_ptr<osgDB::FindFileCallback> m_before;
};

} // namespace

void KrScenePlugins::useAbsoluteFoldersOnly()
{
    static std::mutex s_mutex;
    const std::lock_guard<std::mutex> lock(s_mutex);
    osgDB::Registry* const registry = osgDB::Registry::instance();
    osgDB::FindFileCallback* const current = registry->getFindFileCallback();
    // A client may have set its own since: it is taken in, and asked first.
    if (!dynamic_cast<AbsoluteFolders*>(current)) {
        registry->setFindFileCallback(new AbsoluteFolders(current));
    }
}
