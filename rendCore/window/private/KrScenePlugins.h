#pragma once

/// Where the scene graph's library may load its plugins from.
namespace KrScenePlugins
{

/// From now on plugins are loaded from folders with absolute names only: those of the library's path list
/// (osgDB::Registry::getLibraryFilePathList). By itself the library prefers "osgPlugins-3.6.5" in the current folder,
/// where any file may lie beside the robot that is drawn.
///
/// For the whole process, as the library's registry is. A find-file callback that a client has set is asked first, and
/// keeps its say where it names an absolute path, and in everything that is no plugin. Called again, it looks whether
/// it still holds. To be called before anything that reads through the library; any thread.
void useAbsoluteFoldersOnly();

} // namespace KrScenePlugins
