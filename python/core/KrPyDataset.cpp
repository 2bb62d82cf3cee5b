#include "KrPyDataset.h"

#include "KrPyFailure.h"
#include "KrPyMessages.h"
#include "KrPyText.h"

#include <dataset/KrDatasetMaker.h>
#include <rendCore/plume/KrToolkitFolders.h>
#include <toolkit/foundation/KrPrint.h>

#include <exception>
#include <filesystem>
#include <string>

namespace
{

void demand(bool isDone, const std::string& reason)
{
    if (!isDone) {
        throw KrPyFailure(KrPyFailure::Kind::Dataset, reason);
    }
}

/// A recipe's file, or its text and the folder that paths in it are relative to.
struct Source
{
    std::string path; ///< empty for a text
    std::string text;
    std::string folder;
};

Source sourceOf(const py::object& path, const py::object& text, const py::bytes& folder)
{
    return {path.is_none() ? std::string() : path.cast<std::string>(),
            text.is_none() ? std::string() : text.cast<std::string>(), folder};
}

KrDatasetRecipe recipeOf(const Source& source)
{
    KrDatasetRecipe recipe;
    std::string reason;
    if (source.path.empty() ? !recipe.readText(source.text, source.folder, "the recipe", reason)
                            : !recipe.readFile(source.path, reason)) {
        std::error_code error;
        const bool isMissing = !source.path.empty() && !std::filesystem::exists(source.path, error);
        throw KrPyFailure(isMissing ? KrPyFailure::Kind::MissingFile : KrPyFailure::Kind::Format, reason);
    }
    return recipe;
}

/// Lets Python look in between samples: messages, signals (an interrupt from the keyboard) and the caller's progress.
class Watch
{
public:
    explicit Watch(const py::object& progress)
        : m_progress(progress)
    {
    }

    void look(std::uint64_t done, std::uint64_t total)
    {
        const py::gil_scoped_acquire acquire;
        try {
            KrPyMessages::handOn();
            if (PyErr_CheckSignals() != 0) {
                throw py::error_already_set();
            }
            if (!m_progress.is_none()) {
                m_progress(done, total);
            }
        } catch (...) {
            // Carried past the library, which knows no exceptions.
            m_failure = std::current_exception();
        }
    }
    bool isStopped() const { return m_failure != nullptr; }
    void rethrow() const
    {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
    }

private:
    const py::object& m_progress;
    std::exception_ptr m_failure;
};

py::tuple generate(const py::object& path, const py::object& text, const py::bytes& folder, const py::bytes& out,
                   std::uint64_t process, std::uint64_t numProcesses, bool requireGpu, const py::object& progress)
{
    const Source source = sourceOf(path, text, folder);
    const std::string target = out;
    Watch watch(progress);
    KrDatasetMaker::Result result;
    krPyRun([&] {
        KrToolkitFolders::setDefault();
        const KrDatasetRecipe recipe = recipeOf(source);
        KrDatasetMaker maker;
        std::string reason;
        demand(maker.open(recipe, target, reason), reason);
        for (const std::string& warning : maker.scene().warnings()) {
            Kr::Print::instance()->write(Kr::Print::Warning, "KrDatasetScene - %s.\n", warning.c_str());
        }
        KrDatasetMaker::Options options;
        options.process = process;
        options.numProcesses = numProcesses;
        options.requireGpu = requireGpu;
        options.isStopped = [&watch] { return watch.isStopped(); };
        options.progress = [&watch](std::uint64_t done, std::uint64_t total) { watch.look(done, total); };
        demand(maker.make(options, result, reason) || watch.isStopped(), reason);
    });
    watch.rethrow();
    return py::make_tuple(result.samples, result.shards, result.shardsThere, result.shardsBusy);
}

py::list verify(const py::object& path, const py::object& text, const py::bytes& folder, const py::bytes& out)
{
    const Source source = sourceOf(path, text, folder);
    const std::string target = out;
    std::vector<std::string> faults;
    krPyRun([&] {
        const KrDatasetRecipe recipe = recipeOf(source);
        KrDatasetMaker maker;
        std::string reason;
        demand(maker.open(recipe, target, reason) && maker.store().verify(0, 1, faults, reason), reason);
    });
    py::list told;
    for (const std::string& fault : faults) {
        told.append(krPyText(fault));
    }
    return told;
}

void merge(const py::object& path, const py::object& text, const py::bytes& folder, const py::bytes& out)
{
    const Source source = sourceOf(path, text, folder);
    const std::string target = out;
    krPyRun([&] {
        const KrDatasetRecipe recipe = recipeOf(source);
        KrDatasetMaker maker;
        std::string reason;
        demand(maker.open(recipe, target, reason) && maker.store().merge(reason), reason);
    });
}

void sample(const py::object& path, const py::object& text, const py::bytes& folder, const py::bytes& out,
            std::uint64_t number, bool requireGpu)
{
    const Source source = sourceOf(path, text, folder);
    const std::string target = out;
    krPyRun([&] {
        KrToolkitFolders::setDefault();
        std::string reason;
        demand(KrDatasetMaker::makeSample(recipeOf(source), number, requireGpu, target, reason), reason);
    });
}

} // namespace

void krPyBindDataset(py::module_& module)
{
    module.def("dataset_generate", generate, py::arg("path"), py::arg("text"), py::arg("folder"), py::arg("out"),
               py::arg("process"), py::arg("processes"), py::arg("require_gpu"), py::arg("progress"));
    module.def("dataset_verify", verify, py::arg("path"), py::arg("text"), py::arg("folder"), py::arg("out"));
    module.def("dataset_merge", merge, py::arg("path"), py::arg("text"), py::arg("folder"), py::arg("out"));
    module.def("dataset_sample", sample, py::arg("path"), py::arg("text"), py::arg("folder"), py::arg("out"),
               py::arg("number"), py::arg("require_gpu"));
}
