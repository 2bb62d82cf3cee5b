#pragma once

#include <toolkit/visualization/KrGUIObjectParameters.h>
#include <toolkit/visualization/KrLightParameters.h>
#include <toolkit/visualization/KrPovParameters.h>
#include <toolkit/visualization/KrRenderParameters.h>

/// Everything about how a system is shown.
class KrVisualizationParameters : public KrXmlObjectOf<KrVisualizationParameters, KrXmlCompoundType>
{
public:
    /// Each part as its class makes it.
    KrVisualizationParameters();
    KrVisualizationParameters(const KrVisualizationParameters& other);
    KrVisualizationParameters(KrVisualizationParameters&& other) noexcept;
    KrVisualizationParameters& operator=(const KrVisualizationParameters& other);
    KrVisualizationParameters& operator=(KrVisualizationParameters&& other) noexcept;
    ~KrVisualizationParameters() override;

    /// From where it is looked at, in which manner it is drawn, by which lights, and the sizes of markers. The parts
    /// are borrowed from this object; setters copy, and trust what the parts' own setters have checked.
    const KrPovParameters& povParameters() const { return m_pov; }
    void setPovParameters(const KrPovParameters& pov) { m_pov = pov; }
    const KrRenderParameters& renderParameters() const { return m_render; }
    void setRenderParameters(const KrRenderParameters& render) { m_render = render; }
    const KrLightParameters& lightParameters() const { return m_light; }
    void setLightParameters(const KrLightParameters& light) { m_light = light; }
    const KrGUIObjectParameters& GUIObjectParameters() const { return m_gui; }
    void setGUIObjectParameters(const KrGUIObjectParameters& gui) { m_gui = gui; }

    KrXmlToken token() const override;
    void registerComponents() override;

private:
    KrPovParameters m_pov;
    KrRenderParameters m_render;
    KrLightParameters m_light;
    KrGUIObjectParameters m_gui;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrVisualizationParameters, KrXmlCompoundType>;
