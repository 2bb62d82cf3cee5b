#pragma once

#include <cstdint>
#include <string>
#include <vector>

class KrStatedSystem;

/// Kinds of image that each sample of a data set has.
struct KrDatasetKinds
{
    bool color = true;
    bool depth = false;
    bool labels = false;
    bool normals = false;
    bool masks = false; ///< what each part covers when nothing stands before it
};

/// One part of the scene that has a label of its own.
struct KrDatasetPart
{
    std::uint32_t label = 0;           ///< in label images: 1, 2, ...; 0 is for what is no part
    std::uint32_t category = 0;        ///< KrDatasetCategory::id
    std::string name;                  ///< unique in the data set: "robot/link", "robot" or "robot/link/0"
    std::string manipulator;           ///< name
    std::string link;                  ///< name; empty where whole manipulators have labels
    unsigned int manipulatorIndex = 0; ///< in the system
    unsigned int linkIndex = 0;        ///< 0: the base, then 1 + number in depth-first pre-order
    unsigned int shapeIndex = 0;       ///< among the link's shapes, where these have labels; otherwise 0
};

/// What a part is, for who learns to tell parts: two robots of one class have the same categories.
struct KrDatasetCategory
{
    std::uint32_t id = 0;      ///< 1, 2, ...
    std::string name;          ///< unique: "class/link", "class" or "class/link/0"
    std::string supercategory; ///< the robot's class
};

/// What holds for all samples of a data set. It follows from the recipe and the files that it names, and is the same
/// in all processes that make shards of the set.
struct KrDatasetInfo
{
    std::string name;            ///< the recipe's; of letters, digits, '-', '_' and '.'
    std::string rendererVersion; ///< of this library
    std::string recipeHash;      ///< SHA-256 of the recipe, 64 lower-case hexadecimal digits
    unsigned int width = 0;      ///< of all images, pixels
    unsigned int height = 0;
    KrDatasetKinds kinds;
    std::uint64_t numSamples = 0;
    std::uint64_t samplesPerShard = 0;
    std::vector<std::string> cameras;          ///< names; sample k is seen by camera k % cameras.size()
    std::vector<KrDatasetPart> parts;          ///< by label: that of label n stands at n - 1
    std::vector<KrDatasetCategory> categories; ///< by id, likewise
    /// The scene, for writers that describe its geometry; borrowed, outlives the writers. Only the joints' positions
    /// and the colours change between samples.
    const KrStatedSystem* system = nullptr;
};

/// The samples that one shard holds: first to first + count - 1.
struct KrDatasetShard
{
    std::uint64_t number = 0; ///< from 0
    std::uint64_t first = 0;
    std::uint64_t count = 0;
};
