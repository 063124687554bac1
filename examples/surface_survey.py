"""Gravity over bodies in the ground and its inversion with a surface style: what the examples of those styles share."""
from gallery import read_values, write_bodies, write_stations, write_values

CONTROL = """0                      ! a new run
2 0 0                  ! fixed trade-off, no background removal
%-22s ! trade-off, -, %s of either sign
gz.obs                 ! observed data
gz.mtx                 ! sensitivities
0.0                    ! initial model, g/cm3
0.0                    ! reference model
null                   ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
%-22s ! iterations
"""


def write_truth(bench, mesh, bodies, mesh_file='mesh.msh'):
    """Mesh, true.den and the outlines of the bodies. Gives the true model."""
    mesh.write(bench.path(mesh_file))
    truth = mesh.model(bodies)
    write_values(bench.path('true.den'), truth)
    write_bodies(bench.path('true_bodies.json'), mesh, bodies)
    return truth


def predict(bench, mesh_file, model, stations_file, out, *noise):
    bench.tools('predict', '--mesh', mesh_file, '--stations', stations_file, '--type', 'gz', '--model', model, '--out', out,
                *noise)


def measure(bench, stations, floor, seed, mesh_file='mesh.msh', stations_file='stations.obs'):
    """Data of true.den in gz.obs, with normal noise of `floor` mGal."""
    write_stations(bench.path(stations_file), stations)
    predict(bench, mesh_file, 'true.den', stations_file, 'gz.obs', '--noise', '0,%g' % floor, '--seed', seed)


def invert(bench, report, style, tradeoff, iterations, *mtx_options, mesh_file='mesh.msh', unknowns='densities'):
    """Inverts gz.obs. Gives the model and the seconds that the run took."""
    bench.write('voxlith.inp', CONTROL % ('%g 0.02 0' % tradeoff, unknowns, iterations))
    bench.tools('mtx', '--mesh', mesh_file, '--stations', 'gz.obs', '--type', 'gz', '--out', 'gz.mtx', '--style', style,
                *mtx_options)
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.2)
    return read_values(bench.path('voxlith.den')), seconds


def columns_of(mesh, model):
    return [model[p:p + mesh.nz] for p in range(0, len(model), mesh.nz)]
