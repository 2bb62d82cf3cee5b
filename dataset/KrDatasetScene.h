#pragma once

#include <dataset/KrDatasetInfo.h>
#include <dataset/KrDatasetRecipe.h>
#include <dataset/KrDatasetSample.h>
#include <dataset/KrDatasetSampler.h>

#include <toolkit/system/KrStatedSystem.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The scene of a recipe, and the samples that it shows, drawn without a display.
///
/// The bytes of a sample follow from recipe and number: neither what was drawn before nor which process draws matters.
/// Everything runs on the thread that opened the scene. What fails gives false, and says why in one sentence without a
/// full stop.
class KrDatasetScene
{
public:
    /// The camera is placed anew this often where a picture shows too little.
    static constexpr unsigned int kMostAttempts = 100;

    /// Processor time of this thread by what it went into, s.
    struct Times
    {
        double posing = 0.0; ///< and looking up what the sample shows
        double drawing = 0.0;
        double reading = 0.0; ///< back what was drawn
        double parts = 0.0;   ///< poses, boxes and masks of parts
    };

    /// Has no scene before `load`, and no context before it draws.
    KrDatasetScene();
    ~KrDatasetScene();
    KrDatasetScene(const KrDatasetScene&) = delete;
    KrDatasetScene& operator=(const KrDatasetScene&) = delete;

    /// Reads robots and meshes; needs no OpenGL. Once.
    bool load(const KrDatasetRecipe& recipe, std::string& reason);
    /// After `load`.
    const KrDatasetRecipe& recipe() const { return m_recipe; }
    /// What holds for all samples; borrowed.
    const KrDatasetInfo& info() const { return m_info; }
    /// Says what a sample shows, without drawing it; borrowed.
    const KrDatasetSampler& sampler() const { return m_sampler; }
    /// What the readers of the files mended or left out. A mesh that is missing is no warning, but a failure.
    const std::vector<std::string>& warnings() const { return m_warnings; }

    /// Opens the window. After `load`, once.
    bool open(std::string& reason);
    /// What draws: the driver's GL_RENDERER. After `open`.
    const std::string& renderer() const { return m_renderer; }
    /// Whether that is a program and no graphics processor.
    bool isSoftware() const;

    /// Draws a sample: all that the recipe asks for, and labels where masks need them.
    /// @param sample  its memory is used again
    /// @return false, too, where no attempt shows as much as the recipe asks for
    bool draw(std::uint64_t number, KrDatasetSample& sample, std::string& reason);

    /// Of all calls of `draw`.
    const Times& times() const { return m_times; }

private:
    struct Drawing;

    bool loadSources(std::string& reason);
    void describe();
    bool drawShot(std::uint64_t number, unsigned int attempt, KrDatasetShot& shot, KrDatasetSample& sample,
                  std::string& reason);
    /// Calls `draw`, and counts what it takes.
    bool drawTimed(const std::function<bool()>& draw);
    void describeFrame(const KrDatasetShot& shot, KrDatasetSample& sample);
    bool fillParts(const KrDatasetShot& shot, KrDatasetSample& sample, std::string& reason);
    void fillMask(const KrDatasetSample& sample, KrDatasetSample::Part& part);
    /// In the world: the base and then the links in the order of joint indices, by manipulator.
    std::vector<std::vector<KrCoordinateSystemTransformation>> linkPoses(const KrManipulatorSystemState& state) const;

    KrDatasetRecipe m_recipe;
    KrDatasetInfo m_info;
    KrStatedSystem m_system;
    std::vector<KrDatasetSampler::Source> m_sources;
    std::vector<std::string> m_manipulatorNames; ///< in the data set: unique, by manipulator
    std::vector<std::string> m_classNames;       ///< likewise
    KrDatasetSampler m_sampler;
    std::vector<std::string> m_warnings;
    std::string m_renderer;
    Times m_times;
    std::unique_ptr<Drawing> m_drawing; ///< null before `open`
};
