#include <toolkit/system/KrMassProperties.h>

#include <toolkit/extent/KrEllipsoid.h>
#include <toolkit/foundation/KrLimits.h>
#include <toolkit/foundation/KrPrint.h>
#include <toolkit/foundation/private/KrNumberCheck.h>
#include <toolkit/xml/KrXmlReader.h>

#include <Eigen/Eigenvalues>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

/// Share of the largest principal moment by which rounded values may miss the triangle inequality.
constexpr double kTolerance = 1e-6;
/// Of an ellipsoid, as a part of its longest semi-axis: a few pixels in a picture, a ten-thousandth of the inertia.
constexpr double kLeastThickness = 1e-2;

// Of the order in which descriptions of robots have the six: Ixx Iyy Izz Ixy Ixz Iyz.
// Symmetric, hence six numbers.
Eigen::Matrix3d tensor(const std::array<double, 6>& inertia)
{
    const auto [xx, yy, zz, xy, xz, yz] = inertia;
    Eigen::Matrix3d matrix;
    matrix << xx, xy, xz, //
        xy, yy, yz,       //
        xz, yz, zz;
    return matrix;
}

/// How far moments I1, I2, I3 are from I2 + I3 = I1, and cyclic: 2/5 m a^2 of each semi-axis a of the ellipsoid.
Eigen::Vector3d spreads(const Eigen::Vector3d& moments)
{
    return Eigen::Vector3d::Constant(moments.sum()) - 2.0 * moments;
}

// Of a solid ellipsoid I1 = m / 5 (b^2 + c^2), and cyclic; solved for a^2. Rounding may leave a negative spread.
Eigen::Vector3d squaredSemiAxes(double mass, const Eigen::Vector3d& moments)
{
    return 2.5 * (spreads(moments).cwiseMax(0.0) / mass);
}

// The columns of `axes` are the principal axes.
KrCoordinateSystemTransformation pose(const Eigen::Matrix3d& axes, const KrVector& origin)
{
    KrCoordinateSystemTransformation result;
    result.setRotation({axes(0, 0), axes(0, 1), axes(0, 2), //
                        axes(1, 0), axes(1, 1), axes(1, 2), //
                        axes(2, 0), axes(2, 1), axes(2, 2)});
    result.setTranslation(origin);
    return result;
}

bool areFinite(const std::array<double, 6>& values)
{
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

} // namespace

template class KrXmlObjectOf<KrMassProperties, KrXmlCompoundType>;

// Copies are compiled here, once, and not in every file that includes the header.
KrMassProperties::KrMassProperties() = default;
KrMassProperties::KrMassProperties(const KrMassProperties& other) = default;
KrMassProperties::KrMassProperties(KrMassProperties&& other) noexcept = default;
KrMassProperties& KrMassProperties::operator=(const KrMassProperties& other) = default;
KrMassProperties& KrMassProperties::operator=(KrMassProperties&& other) noexcept = default;
KrMassProperties::~KrMassProperties() = default;

// A mass below 0 is kept, like everything that is finite: whyImpossible() tells about it.
bool KrMassProperties::setMass(double mass)
{
    if (!Kr::NumberCheck::areFinite("KrMassProperties::setMass", {mass})) {
        return false;
    }
    m_mass = mass;
    // Other values are worth another message.
    m_isReported = false;
    return true;
}

bool KrMassProperties::setCenterOfMass(const KrVector& center)
{
    if (!Kr::NumberCheck::areFinite("KrMassProperties::setCenterOfMass", {center.x(), center.y(), center.z()})) {
        return false;
    }
    m_centerOfMass = center;
    m_isReported = false;
    return true;
}

std::array<double, 6> KrMassProperties::inertia() const
{
    std::array<double, 6> result = {};
    // A document may have had fewer or more before it was refused; what is missing counts as 0.
    const std::size_t count = std::min<std::size_t>(result.size(), m_inertia.size());
    std::copy_n(m_inertia.begin(), count, result.begin());
    return result;
}

bool KrMassProperties::setInertia(const std::array<double, 6>& inertia)
{
    const auto [xx, yy, zz, xy, xz, yz] = inertia;
    if (!Kr::NumberCheck::areFinite("KrMassProperties::setInertia", {xx, yy, zz, xy, xz, yz})) {
        return false;
    }
    m_inertia.values().assign(inertia.begin(), inertia.end());
    m_isReported = false;
    return true;
}

std::string KrMassProperties::whyImpossible() const
{
    // Without any value there is nothing to judge.
    if (!isGiven()) {
        return {};
    }
    char text[160];
    if (!(mass() > 0.0 && std::isfinite(mass()))) {
        std::snprintf(text, sizeof text, "the mass is %g kg", mass());
        return text;
    }
    if (!centerOfMass().isFinite()) {
        return "the centre of mass is not finite";
    }
    if (!areFinite(inertia())) {
        return "the inertia is not finite";
    }

    // Moments that meet the triangle inequality are not negative either: the sum of two such inequalities is
    // 2 I >= 0.
    // The eigenvalues of the symmetric tensor are the principal moments (in ascending order).
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(tensor(inertia()), Eigen::EigenvaluesOnly);
    const Eigen::Vector3d moments = solver.eigenvalues();
    const double largest = moments.cwiseAbs().maxCoeff();
    if (solver.info() != Eigen::Success || !(spreads(moments).minCoeff() >= -kTolerance * largest)) {
        std::snprintf(text, sizeof text, "the principal moments are %g, %g and %g kg m^2", moments[0], moments[1],
                      moments[2]);
        return text;
    }
    // A large moment of a small mass gives an ellipsoid beyond all measure.
    const double reach = std::sqrt(squaredSemiAxes(mass(), moments).maxCoeff());
    // Written so that NaN fails too.
    if (!(reach <= Kr::Limits::kLargestBody)) {
        std::snprintf(text, sizeof text, "%g kg with moments up to %g kg m^2 reach %g m far", mass(), largest, reach);
        return text;
    }
    if (!(centerOfMass().length() <= Kr::Limits::kLargestBody)) {
        std::snprintf(text, sizeof text, "the centre of mass is %g m away", centerOfMass().length());
        return text;
    }
    return {};
}

// Once for each set of values, however often the ellipsoid is asked for.
bool KrMassProperties::tellWhyImpossible(const std::string& linkName) const
{
    const std::string reason = whyImpossible();
    if (!reason.empty() && !m_isReported) {
        Kr::Print::instance()->write(Kr::Print::Warning,
                                     "KrMassProperties::fillEllipsoid - link \"%s\": no body is like that, %s.\n",
                                     linkName.c_str(), reason.c_str());
        m_isReported = true;
    }
    return reason.empty();
}

bool KrMassProperties::fillEllipsoid(const std::string& linkName, KrEllipsoid& ellipsoid,
                                     KrCoordinateSystemTransformation& principalAxes) const
{
    ellipsoid = KrEllipsoid();
    if (!isGiven()) {
        return false;
    }
    if (!tellWhyImpossible(linkName)) {
        return false;
    }

    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(tensor(inertia()));
    Eigen::Matrix3d axes = solver.eigenvectors();
    // Eigenvectors are right-handed or left-handed, as they come; a pose has to be a rotation.
    if (axes.determinant() < 0.0) {
        axes.col(2) = -axes.col(2);
    }
    // Of a plate and of a rod, too, there is something to see.
    const Eigen::Vector3d exact = squaredSemiAxes(mass(), solver.eigenvalues()).cwiseSqrt();
    const Eigen::Vector3d semiAxes = exact.cwiseMax(kLeastThickness * exact.maxCoeff());

    principalAxes = pose(axes, centerOfMass());
    ellipsoid = KrEllipsoid(KrVector(semiAxes[0], semiAxes[1], semiAxes[2]), principalAxes);
    return true;
}

KrXmlToken KrMassProperties::token() const
{
    return {KrXmlNamespace::system(), "massProperties"};
}

void KrMassProperties::registerComponents()
{
    const std::string& uri = KrXmlNamespace::system();
    registerComponent({uri, "mass"}, m_mass, Presence::Optional);
    registerComponent({uri, "centerOfMass"}, m_centerOfMass, Presence::Optional);
    registerComponent({uri, "inertia"}, m_inertia, Presence::Optional);
}

bool KrMassProperties::validate(KrXmlRefusal& refusal) const
{
    // Called when values have been read, which are worth a message of their own.
    m_isReported = false;
    // Values that no body has are kept: they cost the ellipsoid, not the file.
    if (m_inertia.size() != 6) {
        return refusal.fail("an inertia is six numbers (Ixx Iyy Izz Ixy Ixz Iyz), not %u", m_inertia.size());
    }
    if (!std::isfinite(mass()) || !centerOfMass().isFinite() || !areFinite(inertia())) {
        return refusal.fail("mass properties are finite");
    }
    return true;
}
