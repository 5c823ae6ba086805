// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Shows planar 4:2:0 on a canvas: by WebGL 2, else by ImageData. Both give the same colours, those of the player's PNG files.
const hdHeight = 720; // from here on pictures are taken for BT.709, smaller ones for BT.601
const matrices = { 601: [409, 100, 208, 516], 709: [459, 55, 136, 541] };

function matrixOf(height) {
  return matrices[height >= hdHeight ? 709 : 601];
}

export function createDisplay(canvas) {
  const gl = canvas.getContext("webgl2", { alpha: false, antialias: false, preserveDrawingBuffer: true });
  return gl ? new GlDisplay(canvas, gl) : new PlainDisplay(canvas);
}

function resize(canvas, frame) {
  if (canvas.width !== frame.width) canvas.width = frame.width;
  if (canvas.height !== frame.height) canvas.height = frame.height;
  const { numerator, denominator } = frame.aspect;
  const aspect = denominator ? numerator / denominator : 1;
  canvas.style.aspectRatio = `${frame.width * aspect} / ${frame.height}`;
}

const vertexShader = `#version 300 es
void main() {
  gl_Position = vec4(gl_VertexID == 1 ? 3 : -1, gl_VertexID == 2 ? 3 : -1, 0, 1);
}`;
const fragmentShader = `#version 300 es
precision highp float;
uniform highp sampler2D y, u, v;
uniform vec4 matrix;
uniform int height;
out vec4 color;
void main() {
  ivec2 at = ivec2(gl_FragCoord.x, height - 1 - int(gl_FragCoord.y));
  float luma = 298.0 * (floor(texelFetch(y, at, 0).r * 255.0 + 0.5) - 16.0) + 128.0;
  float blue = floor(texelFetch(u, at / 2, 0).r * 255.0 + 0.5) - 128.0;
  float red = floor(texelFetch(v, at / 2, 0).r * 255.0 + 0.5) - 128.0;
  vec3 rgb = vec3(luma + matrix.x * red, luma - matrix.y * blue - matrix.z * red, luma + matrix.w * blue);
  color = vec4(clamp(floor(rgb / 256.0), 0.0, 255.0) / 255.0, 1);
}`;

class GlDisplay {
  name = "WebGL";
  #canvas;
  #gl;
  #program;

  constructor(canvas, gl) {
    this.#canvas = canvas;
    this.#gl = gl;
    this.#prepare();
    canvas.addEventListener("webglcontextlost", (event) => event.preventDefault());
    canvas.addEventListener("webglcontextrestored", () => this.#prepare());
  }

  #prepare() {
    const gl = this.#gl;
    const program = gl.createProgram();
    for (const [type, source] of [
      [gl.VERTEX_SHADER, vertexShader],
      [gl.FRAGMENT_SHADER, fragmentShader],
    ]) {
      const shader = gl.createShader(type);
      gl.shaderSource(shader, source);
      gl.compileShader(shader);
      gl.attachShader(program, shader);
    }
    gl.linkProgram(program);
    gl.useProgram(program);
    this.#program = program;
    gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
    for (const [i, name] of ["y", "u", "v"].entries()) {
      gl.activeTexture(gl.TEXTURE0 + i);
      gl.bindTexture(gl.TEXTURE_2D, gl.createTexture());
      gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MIN_FILTER, gl.NEAREST);
      gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MAG_FILTER, gl.NEAREST);
      gl.uniform1i(gl.getUniformLocation(program, name), i);
    }
  }

  show(frame) {
    const gl = this.#gl;
    resize(this.#canvas, frame);
    for (const [i, { samples, width, height, pitch }] of frame.planes.entries()) {
      gl.activeTexture(gl.TEXTURE0 + i);
      gl.pixelStorei(gl.UNPACK_ROW_LENGTH, pitch);
      gl.texImage2D(gl.TEXTURE_2D, 0, gl.R8, width, height, 0, gl.RED, gl.UNSIGNED_BYTE, samples);
    }
    gl.uniform4fv(gl.getUniformLocation(this.#program, "matrix"), matrixOf(frame.height));
    gl.uniform1i(gl.getUniformLocation(this.#program, "height"), frame.height);
    gl.viewport(0, 0, frame.width, frame.height);
    gl.drawArrays(gl.TRIANGLES, 0, 3);
  }
}

class PlainDisplay {
  name = "2D";
  #canvas;
  #context;

  constructor(canvas) {
    this.#canvas = canvas;
    this.#context = canvas.getContext("2d", { alpha: false });
  }

  show(frame) {
    resize(this.#canvas, frame);
    const image = this.#context.createImageData(frame.width, frame.height);
    const [redV, greenU, greenV, blueU] = matrixOf(frame.height);
    const [{ samples: luma, pitch }, { samples: u, pitch: chromaPitch }, { samples: v }] = frame.planes;
    let to = 0;
    for (let row = 0; row < frame.height; row++) {
      for (let column = 0; column < frame.width; column++, to += 4) {
        const chroma = (row >> 1) * chromaPitch + (column >> 1);
        const y = 298 * (luma[row * pitch + column] - 16) + 128;
        const blue = u[chroma] - 128;
        const red = v[chroma] - 128;
        // Clamped when they are stored.
        image.data[to] = (y + redV * red) >> 8;
        image.data[to + 1] = (y - greenU * blue - greenV * red) >> 8;
        image.data[to + 2] = (y + blueU * blue) >> 8;
        image.data[to + 3] = 255;
      }
    }
    this.#context.putImageData(image, 0, 0);
  }
}
