#pragma once

class KrSelfTestRun;

/// The scenes of the self tests. For use inside the library.
namespace KrSelfTestScenes
{

/// How shapes look.
void primitives(KrSelfTestRun& run);
void materials(KrSelfTestRun& run);
void textures(KrSelfTestRun& run);
void transparency(KrSelfTestRun& run);
void selection(KrSelfTestRun& run);
void links(KrSelfTestRun& run);

/// Aids and special geometry.
void axes(KrSelfTestRun& run);
void volumes(KrSelfTestRun& run);
void mass(KrSelfTestRun& run);
void morph(KrSelfTestRun& run);
void plume(KrSelfTestRun& run);
void deformation(KrSelfTestRun& run);
void marks(KrSelfTestRun& run);

/// How frames leave.
void orientation(KrSelfTestRun& run);
void depth(KrSelfTestRun& run);
void rangeMap(KrSelfTestRun& run);
void stream(KrSelfTestRun& run);
void tiles(KrSelfTestRun& run);
void overlay(KrSelfTestRun& run);
void windows(KrSelfTestRun& run);

} // namespace KrSelfTestScenes
