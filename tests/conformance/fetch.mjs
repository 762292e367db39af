// fetch() as the suite wants it, carried out by the bridge program.

import { spawn } from 'node:child_process'
import { createInterface } from 'node:readline'

const bytes = text => Buffer.from(text, 'utf8').toString('latin1')

class Answer {
  constructor ({ status, headers, body, source }) {
    this.status = status
    this.statusText = ''
    this.headers = new Headers(headers)
    this.body = body
    this.source = source
  }

  async text () { return Buffer.from(this.body, 'latin1').toString('utf8') }
}

export class Bridge {
  #waiting = new Map()
  #count = 0
  #process

  constructor (program) {
    this.#process = spawn(program, [], { stdio: ['pipe', 'pipe', 'inherit'] })
    createInterface({ input: this.#process.stdout }).on('line', line => {
      const answer = JSON.parse(line)
      const { resolve, reject } = this.#waiting.get(answer.id)
      this.#waiting.delete(answer.id)
      if ('error' in answer) reject(new TypeError(answer.error))
      else resolve(new Answer(answer))
    })
    this.#process.on('exit', code => {
      for (const { reject } of this.#waiting.values()) reject(new Error(`the bridge ended: ${code}`))
    })
  }

  fetch = (url, { method = 'GET', headers = [], body, cache, redirect } = {}) =>
    new Promise((resolve, reject) => {
      const id = ++this.#count
      this.#waiting.set(id, { resolve, reject })
      const fields = headers.map(([name, value]) => [name, String(value)])
      const text = body === undefined ? null : bytes(body)
      const line = JSON.stringify({ id, url, method, headers: fields, body: text, cache, redirect })
      this.#process.stdin.write(line + '\n')
    })

  close () { this.#process.stdin.end() }
}
