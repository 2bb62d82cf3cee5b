#pragma once

#include <dataset/KrDatasetRecipe.h>

#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrLightParameters.h>
#include <toolkit/visualization/KrPovParameters.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class KrDatasetRandom;

/// What one sample of a data set shows, in numbers. World frame, m, rad.
struct KrDatasetShot
{
    /// A link that has another colour than its own.
    struct LinkColor
    {
        unsigned int manipulator = 0; ///< in the system
        unsigned int link = 0;        ///< 0: the base, then 1 + joint index
        KrColor color;
    };

    KrManipulatorSystemState state;
    unsigned int camera = 0; ///< in the recipe
    KrCoordinateSystemTransformation opticalToWorld;
    KrCameraIntrinsics intrinsics;
    KrPovParameters pov;      ///< of the same camera
    KrLightParameters lights; ///< as many for all samples
    KrColor ambient;
    KrColor background;
    std::optional<std::size_t> backgroundPicture; ///< in the recipe
    std::vector<LinkColor> colors;                ///< of the same links for all samples
};

/// Says what sample k of a recipe shows. It follows from recipe and k alone; nothing is drawn, nothing is kept.
///
/// Sample k shows state k / c by camera k % c, c being the number of cameras. What belongs to the scene (joints, poses,
/// lights, colours) is looked up by the number of the state, what belongs to the image (place of the camera,
/// background) by k. docs/dataset.md lists the names by which KrDatasetRandom is asked.
class KrDatasetSampler
{
public:
    /// A robot or mesh of the recipe: the manipulators of the system that its file brought.
    struct Source
    {
        std::string name;
        unsigned int first = 0;
        unsigned int count = 0;
    };

    /// Looks up what the recipe names.
    /// @param recipe, system  borrowed, outlive the sampler
    /// @param sources         robots and then meshes, in the recipe's order
    /// @return false, with a reason, for a joint or link that is not there, or cannot move as it is told
    bool prepare(const KrDatasetRecipe& recipe, const KrStatedSystem& system, const std::vector<Source>& sources,
                 std::string& reason);

    /// @param attempt  0; n for the n-th time that the camera is placed anew
    KrDatasetShot shot(std::uint64_t number, unsigned int attempt) const;

    /// Pose of a link in the world. @param link  0: the base, then 1 + joint index
    static KrCoordinateSystemTransformation linkToWorld(const KrManipulatorSystem& system,
                                                        const KrManipulatorSystemState& state, unsigned int manipulator,
                                                        unsigned int link);

private:
    struct Joint
    {
        unsigned int manipulator = 0;
        unsigned int index = 0;
        KrDatasetRecipe::Range range;
        std::string quantity;
    };
    struct Base
    {
        unsigned int manipulator = 0;
        KrDatasetRecipe::Pose pose;
        std::string quantity;
    };
    struct LinkLook
    {
        unsigned int manipulator = 0;
        unsigned int link = 0;
        KrDatasetRecipe::Colors colors;
        std::string quantity;
    };
    struct Mount
    {
        unsigned int manipulator = 0;
        unsigned int link = 0;
    };

    bool prepareJoints(const KrDatasetRecipe::Robot& robot, const Source& source, std::string& reason);
    bool prepareMaterials(const std::vector<Source>& sources, std::string& reason);
    bool prepareMounts(const std::vector<Source>& sources, std::string& reason);
    bool findLink(const Source& source, const std::string& name, Mount& mount, std::string& reason) const;
    /// @param random  null: every range at its middle
    void pose(const KrDatasetRandom* random, KrManipulatorSystemState& state) const;
    void light(const KrDatasetRandom& random, KrDatasetShot& shot) const;
    void place(const KrDatasetRandom& random, unsigned int attempt, KrDatasetShot& shot) const;

    const KrDatasetRecipe* m_recipe = nullptr;
    const KrStatedSystem* m_system = nullptr;
    std::vector<Joint> m_joints;
    std::vector<Base> m_bases;
    std::vector<LinkLook> m_looks;
    std::vector<Mount> m_mounts; ///< of the cameras; those that no link carries have one that means nothing
    KrVector m_center;           ///< of the scene with every range at its middle
};
