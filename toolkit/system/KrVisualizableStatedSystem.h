#pragma once

#include <toolkit/system/KrStatedSystem.h>
#include <toolkit/visualization/KrVisualizationParameters.h>

/// A stated system and how it wants to be shown: the native system file.
class KrVisualizableStatedSystem : public KrXmlObjectOf<KrVisualizableStatedSystem, KrXmlCompoundType>
{
public:
    /// The two parts, borrowed from this object.
    const KrStatedSystem& statedSystem() const { return m_statedSystem; }
    KrStatedSystem& statedSystem() { return m_statedSystem; }
    const KrVisualizationParameters& visualizationParameters() const { return m_visualizationParameters; }
    KrVisualizationParameters& visualizationParameters() { return m_visualizationParameters; }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrStatedSystem m_statedSystem;
    KrVisualizationParameters m_visualizationParameters;
};
