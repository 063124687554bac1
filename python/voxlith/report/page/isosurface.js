// Surface of a threshold by surface nets: a vertex in each dual cell that the surface crosses, at the mean of the
// crossings of its edges (S. F. F. Gibson, 1998, Constrained elastic surface nets, MICCAI 1998, LNCS 1496, 888-898).

/**
 * Isosurface through values at cell centres. The surface is closed at the edge of the mesh and half-way to cells
 * without a value.
 *
 * values   x fastest, then y, then z; NaN where there is none
 * x, y, z  positions of the centres along each axis, with the positions of the two end faces around them
 * sign     1: the body of values above the threshold, -1: that of values below
 * returns  {positions, normals, indices, triangles}
 */
function isosurface(values, x, y, z, threshold, sign) {
  const nx = x.length, ny = y.length, nz = z.length, mx = nx - 2, my = ny - 2;
  const level = sign * threshold;
  const at = (i, j, k) => {
    if (i < 1 || j < 1 || k < 1 || i > mx || j > my || k > nz - 2) { return NaN; }
    return sign * values[((k - 1) * my + j - 1) * mx + i - 1];
  };
  const inEdge = (i, j, k) => i < 1 || j < 1 || k < 1 || i > mx || j > my || k > nz - 2;
  const positions = [], indices = [];
  const size = nx * ny;
  const vertexOf = [new Int32Array(size).fill(-1), new Int32Array(size).fill(-1)];  // of the dual layers k - 1 and k
  let below = new Float32Array(size), above = new Float32Array(size);
  const fill = (layer, k) => {
    for (let j = 0; j < ny; j++) {
      for (let i = 0; i < nx; i++) { layer[j * nx + i] = at(i, j, k); }
    }
  };
  fill(below, 0);
  const corner = new Float32Array(8);
  for (let k = 0; k < nz - 1; k++) {
    fill(above, k + 1);
    const now = vertexOf[k & 1], before = vertexOf[1 - (k & 1)];
    now.fill(-1);
    for (let j = 0; j < ny - 1; j++) {
      for (let i = 0; i < nx - 1; i++) {
        const p = j * nx + i;
        const mask = (below[p] > level ? 1 : 0) | (below[p + 1] > level ? 2 : 0) | (below[p + nx] > level ? 4 : 0) |
          (below[p + nx + 1] > level ? 8 : 0) | (above[p] > level ? 16 : 0) | (above[p + 1] > level ? 32 : 0) |
          (above[p + nx] > level ? 64 : 0) | (above[p + nx + 1] > level ? 128 : 0);
        if (mask === 0 || mask === 255) { continue; }
        for (let c = 0; c < 8; c++) { corner[c] = (c < 4 ? below : above)[p + (c & 1) + (c & 2 ? nx : 0)]; }
        let sx = 0, sy = 0, sz = 0, count = 0;
        for (let c = 0; c < 8; c++) {
          for (let axis = 1; axis < 8; axis <<= 1) {
            const d = c | axis;
            if (d === c || ((mask >> c) & 1) === ((mask >> d) & 1)) { continue; }
            const ci = i + (c & 1), cj = j + (c >> 1 & 1), ck = k + (c >> 2);
            const di = i + (d & 1), dj = j + (d >> 1 & 1), dk = k + (d >> 2);
            const part = crossing(corner[c], corner[d], level, inEdge(ci, cj, ck), inEdge(di, dj, dk));
            sx += x[ci] + part * (x[di] - x[ci]);
            sy += y[cj] + part * (y[dj] - y[cj]);
            sz += z[ck] + part * (z[dk] - z[ck]);
            count++;
          }
        }
        now[p] = positions.length / 3;
        positions.push(sx / count, sy / count, sz / count);
        const inside = mask & 1;
        if (i > 0 && j > 0 && inside !== (mask >> 4 & 1)) {  // the edge along z at this corner
          quad(indices, now[p], now[p - 1], now[p - nx - 1], now[p - nx], inside);
        }
        if (j > 0 && k > 0 && inside !== (mask >> 1 & 1)) {  // along x
          quad(indices, now[p], now[p - nx], before[p - nx], before[p], inside);
        }
        if (i > 0 && k > 0 && inside !== (mask >> 2 & 1)) {  // along y
          quad(indices, now[p], before[p], before[p - 1], now[p - 1], inside);
        }
      }
    }
    [below, above] = [above, below];
  }
  const points = new Float32Array(positions), faces = new Uint32Array(indices);
  return { positions: points, normals: vertexNormals(points, faces), indices: faces, triangles: faces.length / 3 };
}

/** Where the surface crosses an edge, as a part of its length. */
function crossing(a, b, level, aOutside, bOutside) {
  if (a === a && b === b) { return (level - a) / (b - a); }
  return a === a ? (bOutside ? 1 : 0.5) : (aOutside ? 0 : 0.5);
}

function quad(indices, a, b, c, d, inside) {
  if (inside) { indices.push(a, b, c, a, c, d); } else { indices.push(a, c, b, a, d, c); }
}

/** Means of the normals of the triangles around each vertex, weighted by their areas. */
function vertexNormals(points, faces) {
  const normals = new Float32Array(points.length);
  for (let n = 0; n < faces.length; n += 3) {
    const a = 3 * faces[n], b = 3 * faces[n + 1], c = 3 * faces[n + 2];
    const ux = points[b] - points[a], uy = points[b + 1] - points[a + 1], uz = points[b + 2] - points[a + 2];
    const vx = points[c] - points[a], vy = points[c + 1] - points[a + 1], vz = points[c + 2] - points[a + 2];
    const normal = [uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx];
    for (const vertex of [a, b, c]) {
      for (let axis = 0; axis < 3; axis++) { normals[vertex + axis] += normal[axis]; }
    }
  }
  return normals;
}
