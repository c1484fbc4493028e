// Trigonometric functions that give the same bits on every machine: libm's differ between versions and processors in
// the last place, these use only IEEE additions, multiplications, divisions and square roots. Errors stay below one
// unit in the last place for angles up to a million radians; larger angles lose accuracy but stay finite and within
// -1..1. NaN and infinite arguments, and sines and cosines beyond 1, give NaN.
#pragma once

double stableSin(double radians);
double stableCos(double radians);
double stableAcos(double cosine);   // 0..pi
double stableAtan(double tangent);  // -pi/2..pi/2
