#!/usr/bin/env python3
"""Valence-force-field H-O-O-H: V = 1/2 sum_i k_i (s_i - s0_i)^2 over the three bonds, the two
H-O-O angles and the H-O-O-H dihedral, each state differing only in the dihedral's minimum.
At a minimum the Cartesian Hessian is B^T F B (B = ds/dx, here from forward-mode automatic
differentiation, exact to rounding). Writes one ORCA Hessian file per dihedral:

    python3 make_hooh.py            # hooh_<deg>.hess for the dihedrals used by the tests

Pure Python, no packages. Units: bohr, hartree, radians, amu."""
import math

BOHR = 0.529177210903  # angstrom
R_OH, R_OO, THETA = 0.96 / BOHR, 1.45 / BOHR, math.radians(100.0)
K_OH, K_OO, K_BEND, K_TAU = 0.514, 0.295, 0.1835, 0.0045  # hartree/bohr^2, hartree/rad^2
MASS = {"H": 1.00782503, "O": 15.99491462}
DIHEDRALS = [115, 116, 145, 165, 180, 195]
FINAL = 115  # the lower state (its energy 0.1 hartree below the others)


class Dual:
    """A value and its gradient with respect to the 12 Cartesian coordinates."""

    def __init__(self, v, g=None):
        self.v, self.g = v, g if g is not None else [0.0] * 12

    def __add__(self, o):
        return Dual(self.v + o.v, [a + b for a, b in zip(self.g, o.g)])

    def __sub__(self, o):
        return Dual(self.v - o.v, [a - b for a, b in zip(self.g, o.g)])

    def __mul__(self, o):
        return Dual(self.v * o.v, [self.v * b + o.v * a for a, b in zip(self.g, o.g)])

    def __truediv__(self, o):
        return Dual(self.v / o.v, [(a * o.v - self.v * b) / o.v**2 for a, b in zip(self.g, o.g)])


def dsqrt(a):
    r = math.sqrt(a.v)
    return Dual(r, [x / (2 * r) for x in a.g])


def datan2(y, x):
    d = x.v**2 + y.v**2
    return Dual(math.atan2(y.v, x.v), [(x.v * gy - y.v * gx) / d for gx, gy in zip(x.g, y.g)])


def vsub(a, b):
    return [p - q for p, q in zip(a, b)]


def vdot(a, b):
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]


def vcross(a, b):
    return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]]


def internals(x):
    """Bonds O2-H1, O2-O3, O3-H4; angles H1-O2-O3, O2-O3-H4; dihedral H1-O2-O3-H4."""
    p = [[x[3 * i + k] for k in range(3)] for i in range(4)]
    bond = lambda i, j: dsqrt(vdot(vsub(p[i], p[j]), vsub(p[i], p[j])))

    def angle(a, b, c):
        u, v = vsub(p[a], p[b]), vsub(p[c], p[b])
        w = vcross(u, v)
        return datan2(dsqrt(vdot(w, w)), vdot(u, v))

    def dihedral(a, b, c, d):
        f, g, h = vsub(p[a], p[b]), vsub(p[b], p[c]), vsub(p[d], p[c])
        aa, bb = vcross(f, g), vcross(h, g)
        return datan2(vdot(vcross(bb, aa), g) / dsqrt(vdot(g, g)), vdot(aa, bb))

    return [bond(1, 0), bond(1, 2), bond(2, 3), angle(0, 1, 2), angle(1, 2, 3),
            dihedral(0, 1, 2, 3)]


def geometry(tau):
    """The minimum with the dihedral tau (radians), bohr."""
    st, ct = math.sin(THETA), math.cos(THETA)
    h1 = [R_OH * st, 0.0, R_OH * ct]
    o2 = [0.0, 0.0, 0.0]
    o3 = [0.0, 0.0, R_OO]
    h4 = [R_OH * st * math.cos(tau), R_OH * st * math.sin(tau), R_OO - R_OH * ct]
    return h1 + o2 + o3 + h4


def write(deg):
    x = geometry(math.radians(deg))
    xs = [Dual(v, [1.0 if k == i else 0.0 for k in range(12)]) for i, v in enumerate(x)]
    s = internals(xs)
    assert abs(abs(s[5].v) - math.radians(deg if deg <= 180 else 360 - deg)) < 1e-12
    k = [K_OH, K_OO, K_OH, K_BEND, K_BEND, K_TAU]
    h = [[sum(k[i] * s[i].g[a] * s[i].g[b] for i in range(6)) for b in range(12)]
         for a in range(12)]
    energy = -151.0 if deg == FINAL else -150.9
    out = ["$orca_hessian_file", "", "$act_energy", "  %.12f" % energy, "", "$hessian", "12"]
    for c0 in range(0, 12, 5):
        cols = range(c0, min(12, c0 + 5))
        out.append("          " + "".join("%24d" % c for c in cols))
        for r in range(12):
            out.append("%6d    " % r + "".join(" %23.16E" % h[r][c] for c in cols))
    out += ["", "$atoms", "4"]
    for i, el in enumerate("HOOH"):
        out.append(" %s %12.8f %24.17f %24.17f %24.17f" % (el, MASS[el], *x[3 * i:3 * i + 3]))
    out += ["", "$end", ""]
    with open("hooh_%d.hess" % deg, "w") as f:
        f.write("\n".join(out))


if __name__ == "__main__":
    for deg in DIHEDRALS:
        write(deg)
