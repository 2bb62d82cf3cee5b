#pragma once

/// A robot of which no mirrored or turned picture is like another.
namespace LopsidedRobot
{

/// Seen from (6, 0, 0) along -x with z up, +y is on the right: link "near" is nearest and upper left (5 m); the shapes
/// of "base" are upper right (5.5 m) and lower left (6 m); nothing is lower right. All show a face to the eye. Joint
/// "push" moves "near" to the eye.
inline const char* const kUrdf = R"(<robot name="lopsided"><link name="base">
  <visual><origin xyz="0.4 0.5 0.4"/><geometry><box size="0.2 0.8 0.6"/></geometry></visual>
  <visual><origin xyz="-0.1 -0.5 -0.4"/><geometry><box size="0.2 0.8 0.6"/></geometry></visual>
</link>
<link name="near">
  <visual><origin xyz="0.9 -0.5 0.4"/><geometry><box size="0.2 0.8 0.6"/></geometry></visual>
</link>
<joint name="push" type="prismatic"><parent link="base"/><child link="near"/><axis xyz="1 0 0"/>
  <limit lower="-1" upper="1" effort="1" velocity="1"/></joint>
</robot>
)";

} // namespace LopsidedRobot
