// A ball on the ground under one light, as pictures_bench describes it to the stage: same places, sizes, camera
// and light; no antialiasing, so one ray goes through the middle of each pixel.
//
// Declare=Triangles=1 makes the ball of the stage's triangles, with smooth normals, in place of a sphere.
#version 3.7;
global_settings { assumed_gamma 1 ambient_light 0 max_trace_level 1 }
#ifndef (Triangles) #declare Triangles = 0; #end

camera {
    location <0, 4, 4>
    right -4/3 * x // x to the right, z towards the eye
    look_at <0, 1, 0>
    angle 2 * degrees(atan2(1, 3))
}
light_source { <-3, 5, 3> rgb 1 }

#declare Matt = finish { ambient 0 diffuse 1 }

#if (Triangles)
    #declare Columns = 128;
    #declare Rows = 64;
    #macro Direction(I, J)
        <sin(pi * J / Rows) * cos(2 * pi * I / Columns), cos(pi * J / Rows), -sin(pi * J / Rows) * sin(2 * pi * I / Columns)>
    #end
    #macro Face(A, B, C)
        smooth_triangle { y + A, A, y + B, B, y + C, C }
    #end
    mesh {
        #for (J, 0, Rows - 1)
            #for (I, 0, Columns - 1)
                #local A = Direction(I, J);
                #local B = Direction(I, J + 1);
                #local C = Direction(I + 1, J + 1);
                #local D = Direction(I + 1, J);
                #if (J < Rows - 1) Face(A, B, C) #end
                #if (J > 0) Face(A, C, D) #end
            #end
        #end
        pigment { rgb <0.8, 0.3, 0.2> }
        finish { Matt }
    }
#else
    sphere { y, 1 pigment { rgb <0.8, 0.3, 0.2> } finish { Matt } }
#end
plane { y, 0 pigment { rgb <0.6, 0.6, 0.55> } finish { Matt } }
